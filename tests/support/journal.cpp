#include "support/journal.h"

#include <sys/uio.h>
#include <systemd/sd-journal.h>

#include <stdexcept>
#include <string_view>
#include <system_error>

namespace fs = std::filesystem;

namespace test_support {
namespace {

const fs::path kFolder = "/run/systemd/journal";

// The libsystemd calls return a negative errno.
int Check(int result) {
    if (result < 0) {
        throw std::system_error(-result, std::generic_category(), "journal");
    }
    return result;
}

std::vector<std::string> Prepare(const std::string& settings) {
    fs::remove_all(kFolder);  // the sockets of one that ended
    for (const char* folder :
         {"/run/systemd/journald.conf.d", "/run/log/journal", kFolder.c_str()}) {
        fs::create_directories(folder);
    }
    // The kernel's messages and the audit log are the machine's, not the test's.
    WriteFile(
        "/run/systemd/journald.conf.d/test.conf",
        "[Journal]\nStorage=volatile\nRateLimitIntervalSec=0\nReadKMsg=no\nAudit=\n" + settings);
    return {"/lib/systemd/systemd-journald"};
}

}  // namespace

Journal::Journal(const std::string& settings)
    : process_(Prepare(settings), {}, "/run/journald.err") {
    const bool listens =
        WaitForChange(kFolder, [] { return fs::exists(kFolder / "io.systemd.journal"); });
    // It answers once all is set up: what comes to a socket before has no _PID, and no file is
    // there.
    if (!listens || RunProgram({"journalctl", "--sync"}).status != 0) {
        throw std::runtime_error("no journal: " + ReadFile("/run/journald.err"));
    }
}

void Journal::End(int signal) {
    process_.Signal(signal);
    (void)process_.Wait();
}

void Journal::Send(const std::vector<std::string>& fields) {
    std::vector<iovec> parts;
    parts.reserve(fields.size());
    for (const std::string& field : fields) {
        parts.push_back({const_cast<char*>(field.data()), field.size()});
    }
    Check(sd_journal_sendv(parts.data(), static_cast<int>(parts.size())));
}

void LogFollower::Close::operator()(sd_journal* journal) const {
    sd_journal_close(journal);
}

LogFollower::LogFollower(const std::string& tag) {
    sd_journal* journal = nullptr;
    Check(sd_journal_open(&journal, SD_JOURNAL_LOCAL_ONLY));
    journal_.reset(journal);
    // The journal takes entries in the order in which they were sent: what follows the mark was
    // sent after it.
    static int marks = 0;
    const std::string mark = "TEST_MARK=" + std::to_string(++marks);
    Check(sd_journal_add_match(journal, mark.c_str(), 0));
    Journal::Send({"MESSAGE=mark", "SYSLOG_IDENTIFIER=test", mark});
    (void)WaitFor("mark");
    sd_journal_flush_matches(journal);
    Check(sd_journal_add_match(journal, ("SYSLOG_IDENTIFIER=" + tag).c_str(), 0));
}

std::string LogFollower::WaitFor(const std::string& text, std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
        while (Check(sd_journal_next(journal_.get())) > 0) {
            const void* data = nullptr;
            size_t size = 0;
            Check(sd_journal_get_data(journal_.get(), "MESSAGE", &data, &size));
            const std::string_view field(static_cast<const char*>(data), size);
            if (field.find(text) != std::string_view::npos) {
                return std::string(field.substr(field.find('=') + 1));
            }
        }
        const std::chrono::microseconds left(std::chrono::duration_cast<std::chrono::microseconds>(
            deadline - std::chrono::steady_clock::now()));
        if (left.count() <= 0) {
            return {};
        }
        Check(sd_journal_wait(journal_.get(), static_cast<uint64_t>(left.count())));
    }
}

}  // namespace test_support
