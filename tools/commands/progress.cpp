#include "commands/progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>

namespace trelvo {

namespace {

constexpr std::chrono::milliseconds kRedraw{100};
constexpr size_t kWidth = 40;

}  // namespace

bool Progress::shown_ = false;

Progress::Progress(uint64_t total, bool prints, std::chrono::milliseconds quiet)
    : wanted_(total > 0 && isatty(STDERR_FILENO) != 0 && (!prints || isatty(STDOUT_FILENO) == 0)),
      total_(total),
      next_(SteadyClock::now() + quiet) {}

Progress::~Progress() {
    Hide();
}

void Progress::Hide() {
    if (shown_) {
        static_cast<void>(std::fputs("\r\x1B[K", stderr));
        shown_ = false;
    }
}

void Progress::Advance(uint64_t amount) {
    done_ = std::min(total_, done_ + amount);
    if (!wanted_ || SteadyClock::now() < next_) {
        return;
    }
    next_ = SteadyClock::now() + kRedraw;
    shown_ = true;
    const auto filled = static_cast<size_t>(done_ * kWidth / total_);
    const std::string bar = std::string(filled, '#') + std::string(kWidth - filled, '.');
    static_cast<void>(
        std::fprintf(stderr, "\r[%s] %3d %%", bar.c_str(), static_cast<int>(done_ * 100 / total_)));
}

}  // namespace trelvo
