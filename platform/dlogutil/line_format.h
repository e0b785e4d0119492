#ifndef TRELVO_PLATFORM_DLOGUTIL_LINE_FORMAT_H
#define TRELVO_PLATFORM_DLOGUTIL_LINE_FORMAT_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace dlogutil {

// The fields of a journal entry that a line is made of.
inline constexpr std::array kFields = {"MESSAGE",   "DLOG_LEVEL", "PRIORITY",   "SYSLOG_IDENTIFIER",
                                       "_COMM",     "_PID",       "SYSLOG_PID", "TID",
                                       "CODE_FILE", "CODE_FUNC",  "CODE_LINE"};

using Fields = std::map<std::string, std::string, std::less<>>;

// Longer messages are cut. One entry makes at most as many lines as its message has.
inline constexpr std::size_t kMaxMessage = std::size_t{64} * 1024;

// The entry's tag as it is written and filtered. Anybody may log under any tag, so whatever a
// reader would take for the end of the tag is replaced in it by '_'. Never empty.
[[nodiscard]] std::string TagOf(const Fields& fields);

// The entry's level, a letter of kLevels.
[[nodiscard]] char LevelOf(const Fields& fields);

// The entry as lines, each with its line feed:
//
//   <seconds>.<ms> <level>/<tag, at least 8 wide>(P<pid>, T<tid>): <file>: <function>(<line>) >
//   text
//
// Every line of a message of several lines is complete; blank ones are left out. `usec` is the
// monotonic time.
[[nodiscard]] std::vector<std::string> FormatLines(const Fields& fields, std::uint64_t usec);

}  // namespace dlogutil

#endif
