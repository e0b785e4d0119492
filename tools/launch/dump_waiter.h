#pragma once

#include <chrono>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>

// A dump that did not come. what() is one line that says why, as far as that can be seen from here.
class DumpWaitError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Waits for the service to write a dump into a folder. Owns the watch on the folder, which must
// be there before the dump is asked for.
class DumpWaiter {
public:
    // The folder is an absolute path. Waits for dumps that are compressed, or for those that are
    // not. Throws DumpWaitError when no dump can be written there.
    DumpWaiter(const std::string& folder, bool compressed);
    DumpWaiter(const DumpWaiter&) = delete;
    DumpWaiter& operator=(const DumpWaiter&) = delete;
    ~DumpWaiter();

    // Returns the path of the first complete dump. Calls `ask` at once and then again every other
    // second until a dump is under way: the service loses a request that comes too early, and one
    // that a dump by itself absorbs. Throws DumpWaitError, at the latest after the time-out, and
    // what `ask` throws.
    [[nodiscard]] std::string Wait(const std::function<void(std::chrono::seconds left)>& ask,
                                   std::chrono::seconds timeout);

private:
    using Clock = std::chrono::steady_clock;

    [[nodiscard]] bool PollUntil(Clock::time_point time) const;
    // Takes the events that are there. Returns the path of a dump that was completed; empty when
    // none was.
    [[nodiscard]] std::string TakeEvents();
    [[noreturn]] void ThrowTimeout(std::chrono::seconds timeout) const;

    std::string folder_;
    std::string_view name_end_;
    int fd_;
    bool under_way_ = false;  // the service has created a file
    std::string hidden_;      // the name that file had
    std::string linked_;      // the dump's name that appeared beside it
};
