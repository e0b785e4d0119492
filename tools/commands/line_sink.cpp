#include "commands/line_sink.h"

#include <algorithm>

#include "commands/output.h"

namespace trelvo {

void LineSink::Take(const std::string& line) {
    if (!last_ && !reversed_) {
        Print(line);
        return;
    }
    held_.push_back(line);
    if (last_ && held_.size() > *last_) {
        held_.pop_front();
    }
}

void LineSink::Finish() {
    if (reversed_) {
        std::reverse(held_.begin(), held_.end());
    }
    for (const std::string& line : held_) {
        Print(line);
    }
    held_.clear();
    last_.reset();
    reversed_ = false;
}

}  // namespace trelvo
