#pragma once

#include <cstdint>
#include <ctime>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "collect/file.h"

namespace trelvo {

// A dump in the archive.
struct ArchivedDump {
    std::string path;
    bool sent = false;
    time_t time = 0;   // when the recorder wrote it
    time_t since = 0;  // when it was archived, or handed over
    uint64_t bytes = 0;
};

// A folder of dumps, compressed by zstd; those that were handed over are in `sent` below it. One
// process at a time has it. All functions throw std::system_error.
//
//   HOST_20261125T105018.123Z_BOOT_SUM.dump.zst
//
// Such a name says nothing but what is in the dump and when it was written, SUM being a checksum of
// the file. So a dump that is stored twice, since a power cut came in between, is there once.
class Archive {
public:
    // Makes the folders where they are missing, and waits while another process has the archive.
    explicit Archive(const std::string& path);

    // Stores a copy of the dump, and returns once it is on the disk with its name. Where it fails
    // nothing incomplete is left.
    void Store(const std::string& dump) const;

    // Oldest first.
    [[nodiscard]] std::vector<ArchivedDump> List() const;

    // The dump was handed over, if not moved away by who took it. Returns once the disk knows it.
    void MarkSent(const ArchivedDump& dump) const;

    // Removes the dumps that have been here, or sent, for longer than that, since the time of a
    // dump is wrong where the machine's clock was; then further ones while all together are larger
    // than that: those that were sent before the others, the oldest first. The newest stays,
    // however large it is. Tells of each that it has removed.
    void Prune(uint64_t max_bytes, time_t max_seconds,
               const std::function<void(const ArchivedDump&)>& on_removed) const;

private:
    std::string path_;
    std::string sent_path_;
    File folder_;
    File sent_;
};

}  // namespace trelvo
