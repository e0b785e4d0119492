#ifndef TRELVO_PLATFORM_DLOGUTIL_JOURNAL_FOLLOWER_H
#define TRELVO_PLATFORM_DLOGUTIL_JOURNAL_FOLLOWER_H

#include <systemd/sd-journal.h>

#include <cstdint>
#include <optional>
#include <string>
#include <system_error>

#include "dlogutil/line_format.h"
#include "handles.h"

namespace dlogutil {

struct JournalEntry {
    Fields fields;       // of kFields, those that the entry has
    std::uint64_t usec;  // monotonic, when the journal took the entry; never runs backwards
};

// The journal cannot be read at the moment. what() names the step and the cause.
class JournalError : public std::system_error {
public:
    using std::system_error::system_error;
};

// Gives the entries of this boot that this user may read, from the first one on, each once. Follows
// the journal through rotations and restarts, and to a folder that is made later.
//
// After a JournalError, Next() opens the journal again and goes on behind the last entry given.
class JournalFollower {
public:
    // Throws JournalError, std::system_error where folders cannot be watched.
    JournalFollower();

    // The next entry; nothing when there is none at the moment. Throws JournalError.
    [[nodiscard]] std::optional<JournalEntry> Next();

    // Both are readable when there may be news; then call Process() and Next() again. The first is
    // -1 after a JournalError.
    [[nodiscard]] int JournalFd() const { return journal_fd_; }
    [[nodiscard]] int FoldersFd() const { return folders_.Get(); }
    // Throws as the constructor does.
    void Process();

private:
    void Open();
    void Close();
    // The result of a libsystemd call; a failed one closes the journal and throws JournalError.
    int Check(int result, const char* what);
    void WatchFolders();
    [[nodiscard]] bool FoldersWereMade();

    port::Handle<sd_journal, sd_journal_close> journal_;  // null after an error
    int journal_fd_ = -1;                                 // borrowed from journal_
    port::UniqueFd folders_;
    std::string cursor_;  // of the last entry that was given
    bool at_cursor_ = false;
    std::uint64_t last_usec_ = 0;
};

}  // namespace dlogutil

#endif
