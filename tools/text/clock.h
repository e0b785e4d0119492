#pragma once

#include <cstdint>
#include <ctime>
#include <string>

namespace trelvo {

// Writes times as text; remembers the second that it wrote last, since lines come in order of time.
class Clock {
public:
    explicit Clock(bool utc) : utc_(utc) {}

    // Milliseconds since 1970 as strftime words it, with the milliseconds behind and, where asked
    // for, the distance from UTC: Z or +01:00.
    void Append(int64_t ms, const char* pattern, bool zone, std::string& out);

private:
    bool utc_;
    int64_t second_ = INT64_MIN;
    std::string text_;  // of second_
    std::string zone_;
};

// Seconds with three decimals, as the log gave them.
void AppendSeconds(int64_t ms, std::string& out);

}  // namespace trelvo
