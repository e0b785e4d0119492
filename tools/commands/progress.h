#pragma once

#include <chrono>
#include <cstdint>

namespace trelvo {

// A bar on standard error for work that takes long; nothing unless that is a terminal. One at a
// time.
class Progress {
public:
    // `prints`: the work prints as it goes on, so that there is no bar where that is a terminal,
    // too. `quiet`: how long there is none.
    Progress(uint64_t total, bool prints,
             std::chrono::milliseconds quiet = std::chrono::seconds(1));
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    // Takes the bar away.
    ~Progress();

    void Advance(uint64_t amount);

    // Takes away the bar of whatever is under way, until it is drawn again.
    static void Hide();

private:
    using SteadyClock = std::chrono::steady_clock;

    static bool shown_;

    bool wanted_;
    uint64_t total_;
    uint64_t done_ = 0;
    SteadyClock::time_point next_;  // when the bar is drawn again
};

}  // namespace trelvo
