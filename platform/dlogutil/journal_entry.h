#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace dlogutil {

// The fields of a journal entry that a line and its time are made of.
enum Field : size_t {
    kMessage,
    kDlogLevel,
    kPriority,
    kIdentifier,
    kComm,
    kPid,
    kSyslogPid,
    kTid,
    kCodeFile,
    kCodeFunc,
    kCodeLine,
    kSourceTime,
    kFieldCount
};
inline constexpr std::array<std::string_view, kFieldCount> kFieldNames = {
    "MESSAGE",   "DLOG_LEVEL", "PRIORITY",   "SYSLOG_IDENTIFIER",
    "_COMM",     "_PID",       "SYSLOG_PID", "TID",
    "CODE_FILE", "CODE_FUNC",  "CODE_LINE",  "_SOURCE_REALTIME_TIMESTAMP"};

// Longer messages are cut, and the other fields at kMaxField.
inline constexpr size_t kMaxMessage = size_t{64} * 1024;
inline constexpr size_t kMaxField = 4096;
// An entry's further lines are left out, and one line more says how many, at least.
inline constexpr size_t kMaxLines = 256;

// The fields of one entry. Meant to be used again for the next one: it keeps its memory.
class Fields {
public:
    // Takes `data`, "NAME=value", when it is the first of one of kFieldNames. Cuts the value: of a
    // message that is too long, it keeps kMaxMessage + 1 bytes.
    void Take(std::string_view data);
    void Clear() { has_.fill(false); }

    [[nodiscard]] bool Has(Field field) const { return has_[field]; }
    // Empty when there is none. Valid until the next change.
    [[nodiscard]] std::string_view operator[](Field field) const {
        return has_[field] ? std::string_view(values_[field]) : std::string_view();
    }

private:
    std::array<std::string, kFieldCount> values_;
    std::array<bool, kFieldCount> has_{};
};

// Only the capture itself writes lines of this tag: they tell which wall clock a time stands for.
inline constexpr std::string_view kClockTag = "trelvo.clock";

// The entry's tag as it is written and filtered. Anybody may log under any tag, so whatever a
// reader would take for the end of the tag, or for kClockTag, is replaced in it by '_'. Never
// empty.
[[nodiscard]] std::string TagOf(const Fields& fields);

// The entry's level, a letter of kLevels: DLOG_LEVEL when it is one, otherwise from PRIORITY.
[[nodiscard]] char LevelOf(const Fields& fields);

// Appends the entry to `lines`, each with its line feed:
//
//   <seconds>.<ms> <level>/<tag, at least 8 wide>(P<pid>, T<tid>): <file>: <function>(<line>) >
//   text
//
// Every line of a message of several lines is complete; blank ones are left out. `tag` is what goes
// between level and ids, as TagOf() gives it; `usec` is the monotonic time. Returns how many lines
// were left out, where a line that was cut counts as one.
size_t AppendLines(const Fields& fields, std::string_view tag, uint64_t usec, std::string& lines);

}  // namespace dlogutil
