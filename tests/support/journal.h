#pragma once

#include <memory>
#include <string>
#include <vector>

#include "support/process.h"

struct sd_journal;

namespace test_support {

// A systemd-journald of the test's own, without rate limit; it must run in the private namespace.
class Journal {
public:
    // Starts it and returns when it listens. `settings` are further lines for its [Journal]
    // section.
    explicit Journal(const std::string& settings = {});

    // Ends it by a signal.
    void End(int signal);
    // One entry of `fields`, each "NAME=value", through the native protocol.
    static void Send(const std::vector<std::string>& fields);

private:
    Process process_;
};

// Follows the messages that are sent under one tag after this object was made.
class LogFollower {
public:
    explicit LogFollower(const std::string& tag);

    // Goes on to the next message that holds `text` and returns it; empty at the limit.
    [[nodiscard]] std::string WaitFor(const std::string& text,
                                      std::chrono::milliseconds limit = kLimit);

private:
    struct Close {
        void operator()(sd_journal* journal) const;
    };
    std::unique_ptr<sd_journal, Close> journal_;
};

}  // namespace test_support
