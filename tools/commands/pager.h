#pragma once

#include <sys/types.h>

namespace trelvo {

// While it lives, what is printed, and told on standard error, goes through a pager: $TRELVO_PAGER,
// else $PAGER, else less. There is none where standard output is not a terminal that can move its
// cursor, where the pager's name is empty or "cat", and where less is not installed.
class Pager {
public:
    Pager();
    Pager(const Pager&) = delete;
    Pager& operator=(const Pager&) = delete;
    // Waits until it has been left.
    ~Pager();

private:
    int saved_output_ = -1;
    int saved_error_ = -1;
};

// Whether what is printed is shown on a terminal, by itself or by a pager.
[[nodiscard]] bool IsShown();

}  // namespace trelvo
