#pragma once

#include <chrono>
#include <cstdint>

// A bar on standard error for work that takes longer than a second; nothing unless that is a
// terminal, and nothing where standard output goes to the same screen.
class Progress {
public:
    explicit Progress(uint64_t total);
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    // Takes the bar away.
    ~Progress();

    void Advance(uint64_t amount);

private:
    using Clock = std::chrono::steady_clock;

    bool wanted_;
    bool shown_ = false;
    uint64_t total_;
    uint64_t done_ = 0;
    Clock::time_point next_;  // when the bar is drawn again
};
