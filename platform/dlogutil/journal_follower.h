#pragma once

#include <systemd/sd-journal.h>

#include <cstdint>
#include <string>
#include <system_error>

#include "dlogutil/journal_entry.h"
#include "handles.h"

namespace dlogutil {

struct JournalEntry {
    Fields fields;
    uint64_t usec = 0;       // monotonic, when the journal took the entry; never runs backwards
    uint64_t wall_usec = 0;  // since the epoch, when it was logged, as journalctl shows it
    std::error_code error;   // why fields are missing, the message among them
};

// Behind an entry of the journal, and what was counted until there.
struct JournalPlace {
    struct Counts {
        uint64_t lost;
        uint64_t uncounted_gaps;
        uint64_t last_usec;
    };
    std::string cursor;  // empty before the first entry of this boot
    Counts counts{};
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
    // Goes on at `start`. Throws JournalError, std::system_error where folders cannot be watched.
    explicit JournalFollower(const JournalPlace& start = {});

    // Reads the next entry into `entry`. False when there is none at the moment. Throws
    // JournalError.
    [[nodiscard]] bool Next(JournalEntry& entry);

    // Behind the last entry given.
    [[nodiscard]] JournalPlace Place();
    // Why this user gets no entries at the moment; empty when it does.
    [[nodiscard]] const std::string& Fault() const { return fault_; }
    // Why it gets some of them only.
    [[nodiscard]] const std::string& Note() const { return note_; }

    // How many entries the journal removed before they were read, by the gaps in its numbers.
    // Counted up to the last Next() that gave none, or some hundred entries before. For a user
    // other than root, who may read only some of the entries, it stays 0.
    [[nodiscard]] uint64_t Lost() const { return lost_; }
    // How often entries may be missing whose number cannot be told: the place was gone when the
    // journal was opened again, and the numbers had begun anew.
    [[nodiscard]] uint64_t UncountedGaps() const { return uncounted_gaps_; }

    // Both are readable when there may be news; then call Process() and Next() again. The first is
    // -1 after a JournalError.
    [[nodiscard]] int JournalFd() const { return journal_fd_; }
    [[nodiscard]] int FoldersFd() const { return folders_.Get(); }
    // Throws as the constructor does.
    void Process();

private:
    void Open();
    void Close();
    // Remembers the place of the last entry, and counts what is missing before it.
    void Mark();
    void LookForFault();
    void ReadFields(JournalEntry& entry);
    // Both return 0 or a negative errno.
    int Enumerate(Fields& fields);
    int ReadOneByOne(Fields& fields);
    // The result of a libsystemd call; a failed one closes the journal and throws JournalError.
    int Check(int result, const char* what);
    void WatchFolders();
    [[nodiscard]] bool FoldersWereMade();

    const std::string boot_;
    port::Handle<sd_journal, sd_journal_close> journal_;  // null after an error
    int journal_fd_ = -1;                                 // borrowed from journal_
    port::UniqueFd folders_;
    std::string cursor_;  // of the last entry given before `unmarked_` others
    uint64_t unmarked_ = 0;
    bool at_cursor_ = false;      // the next entry may be the one at the cursor
    bool has_match_ = false;      // until the first entry of this boot was found
    std::string sequence_;        // the id of the sequence of `number_`
    uint64_t number_ = 0;         // of the entry at the cursor
    bool is_place_lost_ = false;  // nothing was found at the cursor
    uint64_t lost_ = 0;
    uint64_t uncounted_gaps_ = 0;
    uint64_t last_usec_ = 0;
    std::string fault_;
    std::string note_;
};

}  // namespace dlogutil
