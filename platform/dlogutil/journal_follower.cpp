#include "dlogutil/journal_follower.h"

#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <string_view>
#include <system_error>
#include <tuple>
#include <utility>

#include "dlogutil/boot_id.h"

namespace dlogutil {

// The place of an entry is a text that takes a third of the time of reading the entry.
constexpr uint64_t kUnmarked = 256;

namespace {

// "s=<sequence>;i=<number, hexadecimal>;b=..."
std::pair<std::string, uint64_t> SequenceAndNumber(const std::string& cursor) {
    const size_t i = cursor.find(";i=");
    uint64_t number = 0;
    if (i != std::string::npos) {
        std::from_chars(cursor.data() + i + 3, cursor.data() + cursor.size(), number, 16);
    }
    return {cursor.substr(0, i), number};
}

// Whether this user may read all of the journal: root, and members of the group of its folders.
bool SeesEveryEntry() {
    bool sees = geteuid() == 0;
    for (const char* const folder : {"/run/log/journal", "/var/log/journal"}) {
        struct stat info {};
        sees = sees || (stat(folder, &info) == 0 && group_member(info.st_gid) != 0);
    }
    return sees;
}

}  // namespace

JournalFollower::JournalFollower(const JournalPlace& start)
    : boot_(BootId()),
      folders_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)),
      cursor_(start.cursor),
      lost_(start.counts.lost),
      uncounted_gaps_(start.counts.uncounted_gaps),
      last_usec_(start.counts.last_usec) {
    std::tie(sequence_, number_) = SequenceAndNumber(cursor_);
    if (!folders_) {
        port::ThrowErrno("inotify");
    }
    WatchFolders();  // before it is opened, so that no folder comes unseen in between
    Open();
}

bool JournalFollower::Next(JournalEntry& entry) {
    if (!journal_) {
        Open();
    }
    if (unmarked_ >= kUnmarked || (has_match_ && unmarked_ > 0)) {
        Mark();
        // The match has found the boot's first entry. Without it the journal is read faster.
        if (std::exchange(has_match_, false)) {
            sd_journal_flush_matches(journal_.get());
        }
    }
    sd_journal* const journal = journal_.get();
    while (Check(sd_journal_next(journal), "reading the journal") > 0) {
        if (std::exchange(at_cursor_, false)) {
            is_place_lost_ = sd_journal_test_cursor(journal, cursor_.c_str()) <= 0;
            if (!is_place_lost_) {
                continue;
            }
        }
        uint64_t usec = 0;
        sd_id128_t boot{};
        std::array<char, SD_ID128_STRING_MAX> text{};
        const int result = sd_journal_get_monotonic_usec(journal, &usec, &boot);
        if (result >= 0 && sd_id128_to_string(boot, text.data()) != boot_) {
            continue;
        }
        ++unmarked_;
        entry.fields.Clear();
        entry.error.clear();
        // The entries of several files are merged by the wall clock, which may be set back.
        last_usec_ = std::max(last_usec_, usec);
        entry.usec = last_usec_;
        if (result < 0) {
            entry.error = {-result, std::generic_category()};
        } else {
            ReadFields(entry);
        }
        return true;
    }
    Mark();
    if (has_match_ && fault_.empty()) {
        fault_ = "the journal has no entry of this boot, " + boot_;
    }
    return false;
}

void JournalFollower::ReadFields(JournalEntry& entry) {
    int result = Enumerate(entry.fields);
    if (result == -ENOMEM) {
        result = ReadOneByOne(entry.fields);
    }
    if (result < 0) {
        entry.error = {-result, std::generic_category()};
    }
    const std::string_view source = entry.fields[kSourceTime];
    const auto [end, error] =
        std::from_chars(source.data(), source.data() + source.size(), entry.wall_usec);
    if (error != std::errc() || end != source.data() + source.size()) {
        entry.wall_usec = 0;
        static_cast<void>(sd_journal_get_realtime_usec(journal_.get(), &entry.wall_usec));
    }
}

int JournalFollower::Enumerate(Fields& fields) {
    sd_journal* const journal = journal_.get();
    const void* data = nullptr;
    size_t size = 0;
    int result = 0;
    sd_journal_restart_data(journal);
    while ((result = sd_journal_enumerate_available_data(journal, &data, &size)) > 0) {
        fields.Take({static_cast<const char*>(data), size});
    }
    if (result == 0 && !fields.Has(kMessage)) {
        // The loop above passes over fields that cannot be unpacked.
        result = sd_journal_get_data(journal, "MESSAGE", &data, &size);
        result = result == -ENOENT ? 0 : std::min(result, 0);
    }
    return result;
}

// libsystemd unpacks some fields as a whole, and keeps that memory for each file until the journal
// is closed. After this a field is missing only if it is too large by itself.
int JournalFollower::ReadOneByOne(Fields& fields) {
    Mark();
    Close();
    try {
        Open();
        sd_journal* const journal = journal_.get();
        if (Check(sd_journal_next(journal), "reading the journal") <= 0 ||
            sd_journal_test_cursor(journal, cursor_.c_str()) <= 0) {
            Close();
            return -ENOMEM;
        }
        at_cursor_ = false;
        int result = 0;
        for (size_t field = 0; field < kFieldCount; ++field) {
            const void* data = nullptr;
            size_t size = 0;
            const int found = sd_journal_get_data(journal, kFieldNames[field].data(), &data, &size);
            if (found >= 0) {
                fields.Take({static_cast<const char*>(data), size});
            } else if (found != -ENOENT) {
                result = found;
            }
        }
        return result;
    } catch (const JournalError& error) {
        return -error.code().value();
    }
}

void JournalFollower::Mark() {
    char* cursor = nullptr;
    if (unmarked_ == 0 || sd_journal_get_cursor(journal_.get(), &cursor) < 0) {
        return;
    }
    cursor_ = port::Handle<char, std::free>(cursor).get();
    const auto [sequence, number] = SequenceAndNumber(cursor_);
    if (sequence != sequence_) {
        uncounted_gaps_ += is_place_lost_ ? 1 : 0;
    } else if (number > number_ + unmarked_ && SeesEveryEntry()) {
        lost_ += number - number_ - unmarked_;
    }
    is_place_lost_ = false;
    sequence_ = sequence;
    number_ = number;
    unmarked_ = 0;
}

void JournalFollower::Process() {
    if (FoldersWereMade()) {
        WatchFolders();
        Close();
    }
    if (!journal_) {
        Open();
    }
    // What has changed does not matter: Next() goes on from where it stood.
    Check(sd_journal_process(journal_.get()), "following the journal");
    if (!fault_.empty()) {
        LookForFault();
    }
}

JournalPlace JournalFollower::Place() {
    Mark();
    return {cursor_, {lost_, uncounted_gaps_, last_usec_}};
}

// libsystemd leaves out files that it may not read and says nothing of it.
void JournalFollower::LookForFault() {
    sd_id128_t machine{};
    std::array<char, SD_ID128_STRING_MAX> text{};
    static_cast<void>(sd_id128_get_machine(&machine));
    const std::string id = sd_id128_to_string(machine, text.data());
    std::string refused;
    for (const char* const folder : {"/run/log/journal/", "/var/log/journal/"}) {
        const std::string file = folder + id + "/system.journal";
        if (access(file.c_str(), R_OK) != 0 && errno == EACCES) {
            refused = file + ": " + std::generic_category().message(EACCES) +
                      "; the group systemd-journal may read it";
        }
    }
    const bool has_files = sd_journal_has_runtime_files(journal_.get()) > 0 ||
                           sd_journal_has_persistent_files(journal_.get()) > 0;
    fault_.clear();
    note_.clear();
    if (has_files) {
        note_ = refused.empty() ? "" : "this user's own entries only, " + refused;
    } else {
        fault_ = refused.empty() ? "no journal in /run/log/journal or /var/log/journal" : refused;
    }
}

// Opens the journal behind the last entry given. Its file descriptor exists before the first entry
// is read, so that no change goes unseen in between.
void JournalFollower::Open() {
    sd_journal* journal = nullptr;
    Check(sd_journal_open(&journal, SD_JOURNAL_LOCAL_ONLY), "opening the journal");
    journal_.reset(journal);
    Check(sd_journal_set_data_threshold(journal, kMaxMessage + sizeof("MESSAGE=")),
          "opening the journal");
    at_cursor_ = !cursor_.empty();
    has_match_ = !at_cursor_;
    if (at_cursor_) {
        Check(sd_journal_seek_cursor(journal, cursor_.c_str()), "opening the journal");
    } else {
        const std::string match = "_BOOT_ID=" + boot_;
        Check(sd_journal_add_match(journal, match.c_str(), 0), "opening the journal");
        Check(sd_journal_seek_head(journal), "opening the journal");
    }
    journal_fd_ = Check(sd_journal_get_fd(journal), "following the journal");
    LookForFault();
}

void JournalFollower::Close() {
    if (journal_) {
        Mark();
    }
    unmarked_ = 0;  // where their place is unknown, they are given again
    journal_fd_ = -1;
    journal_.reset();
}

int JournalFollower::Check(int result, const char* what) {
    if (result < 0) {  // a negative errno
        Close();
        throw JournalError(-result, std::generic_category(), what);
    }
    return result;
}

// libsystemd only watches the folders that exist when a journal is opened.
void JournalFollower::WatchFolders() {
    for (const char* folder : {"/run", "/run/log", "/var/log"}) {
        if (inotify_add_watch(folders_.Get(), folder, IN_CREATE | IN_MOVED_TO | IN_ONLYDIR) < 0 &&
            errno != ENOENT) {
            port::ThrowErrno(folder);
        }
    }
}

// Whether a folder of the journal may have been made since the last call.
bool JournalFollower::FoldersWereMade() {
    bool made = false;
    alignas(inotify_event) std::array<char, 4096> buffer{};
    ssize_t size = 0;
    while ((size = read(folders_.Get(), buffer.data(), buffer.size())) > 0) {
        for (const char* at = buffer.data(); at < buffer.data() + size;) {
            const auto* const event = reinterpret_cast<const inotify_event*>(at);
            const std::string_view name = event->len > 0 ? event->name : "";
            made |= name == "log" || name == "journal" || (event->mask & IN_Q_OVERFLOW) != 0;
            at += sizeof(inotify_event) + event->len;
        }
    }
    return made;
}

}  // namespace dlogutil
