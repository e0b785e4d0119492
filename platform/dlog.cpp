#include "dlog.h"

// The place of the call is this file for every entry; the writer's own stands in its message.
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <sys/uio.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "dlog_threshold.h"
#include "handles.h"

namespace {

struct Level {
    char letter;
    int syslog;
};

Level LevelOf(int priority) {
    switch (priority) {
        case DLOG_VERBOSE:
            return {'V', 7};
        case DLOG_DEBUG:
            return {'D', 7};
        case DLOG_WARN:
            return {'W', 4};
        case DLOG_ERROR:
            return {'E', 3};
        case DLOG_FATAL:
            return {'F', 2};
        case DLOG_SILENT:
            return {'S', 2};
        default:
            return {'I', 6};
    }
}

// The priority of a level; DLOG_WARN for any other letter.
int PriorityOf(char letter) {
    for (int priority = DLOG_VERBOSE; priority <= DLOG_SILENT; ++priority) {
        if (LevelOf(priority).letter == letter) {
            return priority;
        }
    }
    return DLOG_WARN;
}

const char* ThresholdOfEnvironment() {
    return std::getenv("TRELVO_LOG_LEVEL");
}

// Asked by every thread of the service.
std::atomic<int>& Threshold() {
    static std::atomic<int> threshold = [] {
        const char* const name = ThresholdOfEnvironment();
        return PriorityOf(port::LevelNamed(name != nullptr ? name : "").value_or('W'));
    }();
    return threshold;
}

// libsystemd reports success where there is no journal at all, so that is asked first.
bool SendToJournal(const Level& level, const std::string& tag, const std::string& message) {
    if (access("/run/systemd/journal/socket", F_OK) != 0) {
        return false;
    }
    std::array<std::string, 5> fields = {
        "MESSAGE=" + message, "PRIORITY=" + std::to_string(level.syslog),
        "SYSLOG_IDENTIFIER=" + tag, "TID=" + std::to_string(gettid()),
        std::string("DLOG_LEVEL=") + level.letter};
    std::array<iovec, fields.size()> parts{};
    for (size_t i = 0; i < fields.size(); ++i) {
        parts[i] = {fields[i].data(), fields[i].size()};
    }
    return sd_journal_sendv(parts.data(), static_cast<int>(parts.size())) == 0;
}

bool WriteToStandardError(const Level& level, const std::string& tag, const std::string& message) {
    const std::string line = std::string(1, level.letter) + "/" + tag + "(P" +
                             std::to_string(getpid()) + ", T" + std::to_string(gettid()) +
                             "): " + message + "\n";
    return write(STDERR_FILENO, line.data(), line.size()) == static_cast<ssize_t>(line.size());
}

}  // namespace

namespace port {

const std::vector<std::string_view>& LevelNames() {
    static const std::vector<std::string_view> names = {"verbose", "debug", "info",  "warning",
                                                        "error",   "fatal", "silent"};
    return names;
}

std::optional<char> LevelNamed(std::string_view name) {
    for (const std::string_view known : LevelNames()) {
        const char letter = static_cast<char>(known[0] - 'a' + 'A');
        if (name == known || name == std::string_view(&letter, 1)) {
            return letter;
        }
    }
    return std::nullopt;
}

void SetLogThreshold(char letter) {
    if (ThresholdOfEnvironment() == nullptr) {
        Threshold() = PriorityOf(letter);
    }
}

}  // namespace port

int __dlog_print(log_id_t /*log_id*/, int prio, const char* tag, const char* fmt, ...) {
    // An unknown priority is logged as information.
    const int priority = prio >= DLOG_VERBOSE && prio <= DLOG_SILENT ? prio : DLOG_INFO;
    if (priority < Threshold()) {
        return 0;
    }
    const int caller_errno = errno;
    va_list arguments;
    va_start(arguments, fmt);
    char* formatted = nullptr;
    const int length = vasprintf(&formatted, fmt, arguments);
    va_end(arguments);
    int result = -1;
    if (length >= 0) {
        const port::Handle<char, std::free> owner(formatted);
        const std::string message(formatted, static_cast<size_t>(length));
        const std::string name = tag != nullptr ? tag : "";
        const Level level = LevelOf(prio);
        if (SendToJournal(level, name, message) || WriteToStandardError(level, name, message)) {
            result = length;
        }
    }
    errno = caller_errno;
    return result;
}
