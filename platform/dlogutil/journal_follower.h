#ifndef TRELVO_PLATFORM_DLOGUTIL_JOURNAL_FOLLOWER_H
#define TRELVO_PLATFORM_DLOGUTIL_JOURNAL_FOLLOWER_H

#include <systemd/sd-journal.h>

#include <cstdint>
#include <optional>
#include <string>

#include "dlogutil/line_format.h"
#include "handles.h"

namespace dlogutil {

struct JournalEntry {
    Fields fields;       // of kFields, those that the entry has
    std::uint64_t usec;  // monotonic, when the journal took the entry; never runs backwards
};

// Gives the entries of this boot that this user may read, from the first one on, each once. Follows
// the journal through rotations and restarts, and to a folder that is made later.
//
// All members throw std::system_error when the journal cannot be followed any longer.
class JournalFollower {
public:
    JournalFollower();

    // The next entry; nothing when there is none at the moment.
    [[nodiscard]] std::optional<JournalEntry> Next();

    // Both are readable when there may be news; then call Process() and Next() again.
    [[nodiscard]] int JournalFd() const { return journal_fd_; }
    [[nodiscard]] int FoldersFd() const { return folders_.Get(); }
    void Process();

private:
    void Open();
    void WatchFolders();
    [[nodiscard]] bool FoldersWereMade();

    port::Handle<sd_journal, sd_journal_close> journal_;
    int journal_fd_ = -1;  // borrowed from journal_
    port::UniqueFd folders_;
    std::string cursor_;  // of the last entry that was given
    bool at_cursor_ = false;
    std::uint64_t last_usec_ = 0;
};

}  // namespace dlogutil

#endif
