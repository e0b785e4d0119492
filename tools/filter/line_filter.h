#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>

#include "timeline/timeline.h"

struct pcre2_real_code_8;
struct pcre2_real_match_data_8;

// What a filter was made from cannot be used. what() is one line that quotes it.
class FilterError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A regular expression of PCRE2, looked for in text that need not be UTF-8.
class Pattern {
public:
    // Throws FilterError.
    explicit Pattern(const std::string& expression);

    [[nodiscard]] bool IsIn(std::string_view text) const;

private:
    struct FreeCode {
        void operator()(pcre2_real_code_8* code) const;
    };
    struct FreeMatch {
        void operator()(pcre2_real_match_data_8* match) const;
    };

    std::unique_ptr<pcre2_real_code_8, FreeCode> code_;
    std::unique_ptr<pcre2_real_match_data_8, FreeMatch> match_;
};

// A point of kernel time, or one that counts back from the end of the log.
struct TimePoint {
    int64_t ms = 0;  // before the end: negative or 0
    bool from_end = false;
};

// SECONDS with a fraction, or back from the end: -30s, -5m, -2h, -1d. Throws FilterError.
[[nodiscard]] TimePoint ParseTimePoint(const std::string& text);

// Which lines are shown: those that pass every kind of filter that was given.
class LineFilter {
public:
    // Whether a word has the form TAG:LEVEL.
    [[nodiscard]] static bool IsTagLevel(std::string_view word);

    // TAG:LEVEL, as for the capture: the lowest level of a tag, * for all tags not named. Once
    // there is one, tags without a level are not shown. REQUIRES: IsTagLevel.
    void AddTagLevel(std::string_view word);
    void AddPid(int32_t pid) { pids_.insert(pid); }
    void AddTid(int32_t tid) { tids_.insert(tid); }
    void SetPattern(const std::string& expression) { pattern_.emplace(expression); }
    // From `since` to `until`, both included. A time that counts from the end leaves out the lines
    // of all boots but the last.
    void SetSpan(std::optional<TimePoint> since, std::optional<TimePoint> until);
    // The last boot of the log and when its last line was.
    void SetEnd(size_t boot, int64_t ms);

    [[nodiscard]] bool Passes(const Line& line, size_t boot) const;

private:
    [[nodiscard]] bool PassesTags(const Line& line) const;
    [[nodiscard]] bool IsBefore(const Line& line, size_t boot, const TimePoint& time) const;

    std::map<std::string, int, std::less<>> lowest_;  // by tag
    std::set<int32_t> pids_;
    std::set<int32_t> tids_;
    std::optional<Pattern> pattern_;
    std::optional<TimePoint> since_;
    std::optional<TimePoint> until_;
    size_t end_boot_ = 0;
    int64_t end_ms_ = 0;
};
