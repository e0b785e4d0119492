#include "dlogutil/journal_follower.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <system_error>

namespace dlogutil {

JournalFollower::JournalFollower() : folders_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    if (!folders_) {
        port::ThrowErrno("inotify");
    }
    WatchFolders();  // before it is opened, so that no folder comes unseen in between
    Open();
}

std::optional<JournalEntry> JournalFollower::Next() {
    if (!journal_) {
        Open();
    }
    sd_journal* const journal = journal_.get();
    while (Check(sd_journal_next(journal), "reading the journal") > 0) {
        if (std::exchange(at_cursor_, false) &&
            sd_journal_test_cursor(journal, cursor_.c_str()) > 0) {
            continue;
        }
        std::uint64_t usec = 0;
        char* cursor = nullptr;
        if (sd_journal_get_monotonic_usec(journal, &usec, nullptr) < 0 ||
            sd_journal_get_cursor(journal, &cursor) < 0) {
            continue;  // a damaged entry
        }
        cursor_ = port::Handle<char, std::free>(cursor).get();
        // The entries of several files are merged by the wall clock, which may be set back.
        last_usec_ = std::max(last_usec_, usec);
        JournalEntry entry{{}, last_usec_};
        for (const char* field : kFields) {
            const void* data = nullptr;
            std::size_t size = 0;
            if (sd_journal_get_data(journal, field, &data, &size) >= 0) {
                std::string_view value(static_cast<const char*>(data), size);
                value.remove_prefix(std::min(std::strlen(field) + 1, size));  // "FIELD="
                entry.fields.emplace(field, value);
            }
        }
        return entry;
    }
    return std::nullopt;
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
}

// Opens the journal behind the last entry given. Its file descriptor exists before the first entry
// is read, so that no change goes unseen in between.
void JournalFollower::Open() {
    sd_journal* journal = nullptr;
    Check(sd_journal_open(&journal, SD_JOURNAL_LOCAL_ONLY), "opening the journal");
    journal_.reset(journal);
    sd_id128_t boot{};
    Check(sd_id128_get_boot(&boot), "boot id");
    std::array<char, SD_ID128_STRING_MAX> text{};
    const std::string match = std::string("_BOOT_ID=") + sd_id128_to_string(boot, text.data());
    Check(sd_journal_add_match(journal, match.c_str(), 0), "opening the journal");
    Check(sd_journal_set_data_threshold(journal, kMaxMessage + sizeof("MESSAGE=")),
          "opening the journal");
    Check(cursor_.empty() ? sd_journal_seek_head(journal)
                          : sd_journal_seek_cursor(journal, cursor_.c_str()),
          "opening the journal");
    at_cursor_ = !cursor_.empty();
    journal_fd_ = Check(sd_journal_get_fd(journal), "following the journal");
}

void JournalFollower::Close() {
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
