#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "dump/line.h"
#include "text/time_point.h"

struct pcre2_real_code_8;
struct pcre2_real_jit_stack_8;
struct pcre2_real_match_context_8;
struct pcre2_real_match_data_8;

namespace trelvo {

// A line of which it is unknown whether the pattern matches; the next one may be searched.
class SearchError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A regular expression of PCRE2, looked for in text that need not be UTF-8.
class Pattern {
public:
    // Throws FilterError.
    explicit Pattern(const std::string& expression);

    // Throws SearchError when the search takes more steps or memory than a line may.
    [[nodiscard]] bool IsIn(std::string_view text) const;

private:
    struct Free {
        void operator()(pcre2_real_code_8* code) const;
        void operator()(pcre2_real_jit_stack_8* stack) const;
        void operator()(pcre2_real_match_context_8* context) const;
        void operator()(pcre2_real_match_data_8* match) const;
    };

    std::unique_ptr<pcre2_real_code_8, Free> code_;
    std::unique_ptr<pcre2_real_match_data_8, Free> match_;
    std::unique_ptr<pcre2_real_match_context_8, Free> context_;
    std::unique_ptr<pcre2_real_jit_stack_8, Free> stack_;  // null: the interpreter matches all
};

// Which lines are shown: those that pass every kind of filter that was given.
class LineFilter {
public:
    // Whether a word has the form TAG:LEVEL.
    [[nodiscard]] static bool IsTagLevel(std::string_view word);

    // Whether it may have been meant so: a word, a colon and a letter.
    [[nodiscard]] static bool IsTagAndWord(std::string_view word);

    // TAG:LEVEL, as for the capture: the lowest level of a tag, * for all tags not named. Once
    // there is one, tags without a level are not shown. REQUIRES: IsTagLevel.
    void AddTagLevel(std::string_view word);
    void AddPid(int32_t pid) { pids_.insert(pid); }
    void AddTid(int32_t tid) { tids_.insert(tid); }
    void SetPattern(const std::string& expression) { pattern_.emplace(expression); }
    // Whether lines of this tag were asked for by name.
    [[nodiscard]] bool Names(std::string_view tag) const {
        return lowest_.find(tag) != lowest_.end();
    }
    // From `since` to `until`, both included. A time that counts from the end leaves out the lines
    // of all boots but the last, unless the end is a wall-clock time.
    void SetSpan(std::optional<TimePoint> since, std::optional<TimePoint> until);
    // The last boot of the log and when its last line was.
    void SetEnd(size_t boot, int64_t ms);
    // When the last line was by wall clock: since 1970. Lines are then chosen by wall clock.
    void SetWallEnd(int64_t ms);

    // All filters but the pattern. `boot_time_ms`: since 1970, where it is known. A line without is
    // before every wall-clock time.
    [[nodiscard]] bool Passes(const Line& line, size_t boot,
                              std::optional<int64_t> boot_time_ms) const;

    // Whether the pattern, if there is one, is in the line's text: a code has none. Throws
    // SearchError as the pattern does.
    [[nodiscard]] bool Matches(const Line& line) const;

private:
    [[nodiscard]] bool PassesTags(const Line& line) const;
    [[nodiscard]] bool IsBefore(const Line& line, size_t boot, std::optional<int64_t> boot_time_ms,
                                const TimePoint& time, int64_t later_ms) const;

    std::map<std::string, int, std::less<>> lowest_;  // by tag
    std::set<int32_t> pids_;
    std::set<int32_t> tids_;
    std::optional<Pattern> pattern_;
    std::optional<TimePoint> since_;
    std::optional<TimePoint> until_;
    size_t end_boot_ = 0;
    int64_t end_ms_ = 0;
    std::optional<int64_t> wall_end_ms_;
};

}  // namespace trelvo
