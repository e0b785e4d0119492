#include "trelvoctl/progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>

namespace {

constexpr std::chrono::seconds kQuietTime{1};
constexpr std::chrono::milliseconds kRedraw{100};
constexpr uint64_t kWidth = 40;

}  // namespace

Progress::Progress(uint64_t total)
    : wanted_(total > 0 && isatty(STDERR_FILENO) != 0 && isatty(STDOUT_FILENO) == 0),
      total_(total),
      next_(Clock::now() + kQuietTime) {}

Progress::~Progress() {
    if (shown_) {
        static_cast<void>(std::fputs("\r\x1B[K", stderr));
    }
}

void Progress::Advance(uint64_t amount) {
    done_ = std::min(total_, done_ + amount);
    if (!wanted_ || Clock::now() < next_) {
        return;
    }
    next_ = Clock::now() + kRedraw;
    shown_ = true;
    const uint64_t filled = done_ * kWidth / total_;
    const std::string bar = std::string(filled, '#') + std::string(kWidth - filled, '.');
    static_cast<void>(
        std::fprintf(stderr, "\r[%s] %3d %%", bar.c_str(), static_cast<int>(done_ * 100 / total_)));
}
