#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "platform/handles.h"

namespace trelvo {

// Tells what happens to the files of a folder of dumps since the watch began.
class FolderWatch {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    struct Event {
        std::string name;      // of a file in the folder
        bool complete = true;  // it was closed, renamed or linked; false: it was created
        bool gone = false;     // the folder itself was moved or removed; nothing more will come
        bool lost = false;     // more has happened than is told; nothing else is set
    };

    // How the name of a dump begins until it is whole.
    static constexpr std::string_view kHiddenStart = ".trelvo-";

    // Throws std::system_error with the folder's name when it cannot be watched.
    explicit FolderWatch(std::string folder);

    // Lets files that come into another folder by a rename wake who waits, without an event. That
    // folder need not be there.
    void WakeFor(const std::string& other_folder);

    // Waits until there is something to take, or until that time. May return earlier.
    void Wait(std::optional<TimePoint> until = std::nullopt) const;

    // The next event, without waiting.
    [[nodiscard]] std::optional<Event> Take();

private:
    [[nodiscard]] bool IsDump(const std::string& name) const;

    std::string folder_;
    port::UniqueFd fd_;
    int watch_ = -1;
    std::string events_;  // read, not taken yet
    std::string hidden_;  // a dump that is written
};

}  // namespace trelvo
