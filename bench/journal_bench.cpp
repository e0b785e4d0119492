#include <sys/stat.h>
#include <systemd/sd-journal.h>

#include <filesystem>
#include <memory>
#include <stdexcept>

#include "suites.h"
#include "support/journal.h"
#include "support/private_namespace.h"

namespace fs = std::filesystem;

namespace bench {

namespace {

int Syslog(char level) {
    switch (level) {
        case 'F':
            return 2;
        case 'E':
            return 3;
        case 'W':
            return 4;
        case 'I':
            return 6;
        default:
            return 7;
    }
}

// As the platform's log sends a message to the journal.
void Send(std::string_view line) {
    const size_t level = line.find(' ') + 1;
    const size_t slash = line.find('/');
    const size_t process = line.find("(P", slash);
    const size_t thread = line.find(", T", process);
    const size_t close = line.find("): ", thread);
    if (close == std::string_view::npos) {
        throw std::runtime_error("not a capture line: " + std::string(line));
    }
    const std::string_view tag = line.substr(slash + 1, process - slash - 1);
    const size_t tid = line.find_first_not_of(' ', thread + 3);
    test_support::Journal::Send(
        {"MESSAGE=" + std::string(line.substr(close + 3)),
         "PRIORITY=" + std::to_string(Syslog(line[level])),
         "SYSLOG_IDENTIFIER=" + std::string(tag.substr(0, tag.find_last_not_of(' ') + 1)),
         "TID=" + std::string(line.substr(tid, close - tid)),
         std::string("DLOG_LEVEL=") + line[level]});
}

double CountEntries() {
    sd_journal* opened = nullptr;
    if (sd_journal_open(&opened, SD_JOURNAL_LOCAL_ONLY) < 0) {
        throw std::runtime_error("the journal cannot be read");
    }
    const std::unique_ptr<sd_journal, void (*)(sd_journal*)> journal(opened, sd_journal_close);
    double entries = 0;
    while (sd_journal_next(opened) > 0) {
        ++entries;
    }
    return entries;
}

double StoredBytes() {
    double bytes = 0;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator("/run/log/journal")) {
        struct stat status {};
        if (entry.is_regular_file() && stat(entry.path().c_str(), &status) == 0) {
            bytes += 512.0 * static_cast<double>(status.st_blocks);
        }
    }
    return bytes;
}

// systemd's own journal in memory, with all of its defaults but the limit.
Counters KeepByJournal(const Corpus& corpus) {
    test_support::EnterPrivateNamespace();
    const test_support::Journal journal("RuntimeMaxUse=10M\n");
    for (size_t i = 0; i < corpus.Size(); ++i) {
        Send(corpus.Line(i));
    }
    // Waits for an entry that is sent after all others.
    const test_support::LogFollower end("bench");
    const double lines = CountEntries();
    return {{"1. bytes/line", StoredBytes() / lines},
            {"2. lines kept", lines},
            {"3. seconds kept", lines / static_cast<double>(corpus.Size()) * corpus.Span()}};
}

}  // namespace

void AddJournal(Subject& subject) {
    AddMeasured("history/" + subject.corpus.Name() + "/volatile journal",
                [&] { return KeepByJournal(subject.corpus); });
}

}  // namespace bench
