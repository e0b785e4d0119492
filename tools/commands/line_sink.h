#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <string>

namespace trelvo {

// Takes finished lines, with their line feeds, and prints them: at once, only the last of them, or
// in reverse. All but the first way hold in memory what is still to be printed.
class LineSink {
public:
    LineSink(std::optional<size_t> last, bool reversed) : last_(last), reversed_(reversed) {}

    void Take(const std::string& line);
    // Prints what was held back; what comes later is printed at once.
    void Finish();

private:
    std::optional<size_t> last_;
    bool reversed_;
    std::deque<std::string> held_;
};

}  // namespace trelvo
