#pragma once

#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace trelvo {

// Standard output did not take what was written. what() is the cause.
class OutputError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Data for standard output. Throws OutputError.
void Print(std::string_view data);
// As printf formats them.
[[gnu::format(printf, 1, 2)]] std::string Format(const char* format, ...);
// Hands over what is still buffered; the last chance to learn that a disk is full.
void FlushOutput();

// Columns of the terminal that standard output is; nothing where it is another thing.
[[nodiscard]] std::optional<size_t> TerminalWidth();

// One line for standard error, "trelvoctl: " before it, after all that was printed so far. The
// message is escaped: it may quote file names and the service's own words.
void Complain(std::string_view message);

}  // namespace trelvo
