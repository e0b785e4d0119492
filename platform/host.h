#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "handles.h"
#include "launch_check.h"

// What the process and the machine need before the service can run. Whatever fails throws
// std::runtime_error, which names the file or the variable.
namespace port {

// Whatever the launcher's umask: what this service writes is the machine's log. What others may not
// read at all is in folders of mode 0700.
// Returns a fault where this user cannot take the group of the readers.
[[nodiscard]] std::vector<Fault> SetModes(const std::optional<gid_t>& readers);

// So that the programs that were built with the service are found before any others: in lib/trelvo
// beside the folder of an installed service, in its own folder otherwise.
void PutOwnProgramsFirstOnPath();

// Empty when another process holds the lock, which has its holder's id as text. It ends with the
// process, whatever happens to it.
[[nodiscard]] UniqueFd TakeLock(const std::string& path);

// The reader takes whatever it finds for new, and the capture comes to clearing its files only when
// the reader is under way already. What an earlier capture left would be counted as lines of the
// new one or, after a reboot, have times ahead of all that follow and silence the recorder. The
// device has an empty /tmp after a boot and never starts the service twice.
void ClearCaptureFiles(const std::string& file, int rotated_count);

// The service writes every dump to a fixed name in this folder first. In another user's folder that
// user could make the name a link to any file. As long as the lock is held, what cleans /tmp of old
// files leaves the folder, which is empty between two dumps.
[[nodiscard]] UniqueFd PrepareDumpFolder(const std::string& folder);

// Tells the children of the service that it is gone, however it ended: the only write end of a pipe
// ends with the process, and children find the number of the read end in their environment.
class Lifeline {
public:
    // Throws std::system_error.
    Lifeline();
    Lifeline(const Lifeline&) = delete;
    Lifeline& operator=(const Lifeline&) = delete;
    ~Lifeline();

private:
    UniqueFd read_end_;
    UniqueFd write_end_;
};

}  // namespace port
