#define PCRE2_CODE_UNIT_WIDTH 8
#include "text/line_filter.h"

#include <pcre2.h>

#include <algorithm>
#include <array>
#include <new>

namespace trelvo {

namespace {

// By rank. A dump tells no levels below I apart and calls them all D.
constexpr std::string_view kLevels = "VDIWEFS";
constexpr int kSilent = 6;
constexpr int kDebug = 1;

// Stacks of compiled patterns, which grow with the line: a few megabytes do for lines of 64 KiB.
constexpr size_t kFirstStack = size_t{32} * 1024;
constexpr size_t kMostStack = size_t{8} * 1024 * 1024;
constexpr uint32_t kMostHeapKiB = 24 * 1024;  // of the interpreter

int Rank(char level) {
    if (level >= 'a' && level <= 'z') {
        level = static_cast<char>(level - 'a' + 'A');
    }
    return static_cast<int>(kLevels.find(level));
}

std::string ErrorText(int error) {
    std::array<unsigned char, 256> message{};
    static_cast<void>(pcre2_get_error_message(error, message.data(), message.size()));
    return reinterpret_cast<const char*>(message.data());
}

}  // namespace

void Pattern::Free::operator()(pcre2_real_code_8* code) const {
    pcre2_code_free(code);
}

void Pattern::Free::operator()(pcre2_real_jit_stack_8* stack) const {
    pcre2_jit_stack_free(stack);
}

void Pattern::Free::operator()(pcre2_real_match_context_8* context) const {
    pcre2_match_context_free(context);
}

void Pattern::Free::operator()(pcre2_real_match_data_8* match) const {
    pcre2_match_data_free(match);
}

Pattern::Pattern(const std::string& expression) {
    int error = 0;
    size_t offset = 0;
    code_.reset(pcre2_compile(reinterpret_cast<PCRE2_SPTR>(expression.data()), expression.size(),
                              PCRE2_UTF | PCRE2_MATCH_INVALID_UTF, &error, &offset, nullptr));
    if (!code_) {
        throw FilterError("'" + expression + "' at " + std::to_string(offset) + ": " +
                          ErrorText(error));
    }
    match_.reset(pcre2_match_data_create(1, nullptr));
    context_.reset(pcre2_match_context_create(nullptr));
    if (!match_ || !context_) {
        throw std::bad_alloc();
    }
    pcre2_set_heap_limit(context_.get(), kMostHeapKiB);
    // Without the compiler the interpreter matches, only more slowly.
    if (pcre2_jit_compile(code_.get(), PCRE2_JIT_COMPLETE) == 0) {
        stack_.reset(pcre2_jit_stack_create(kFirstStack, kMostStack, nullptr));
        pcre2_jit_stack_assign(context_.get(), nullptr, stack_.get());
    }
}

bool Pattern::IsIn(std::string_view text) const {
    const auto match = [this, text](uint32_t options) {
        return pcre2_match(code_.get(), reinterpret_cast<PCRE2_SPTR>(text.data()), text.size(), 0,
                           options, match_.get(), context_.get());
    };
    int result = match(0);
    if (result == PCRE2_ERROR_JIT_STACKLIMIT) {
        result = match(PCRE2_NO_JIT);
    }
    if (result < 0 && result != PCRE2_ERROR_NOMATCH) {
        throw SearchError("the pattern gives up on this line: " + ErrorText(result));
    }
    return result >= 0;
}

bool LineFilter::IsTagLevel(std::string_view word) {
    return word.size() >= 2 && word[word.size() - 2] == ':' &&
           Rank(word.back()) != static_cast<int>(std::string_view::npos);
}

bool LineFilter::IsTagAndWord(std::string_view word) {
    const size_t colon = word.rfind(':');
    return colon != std::string_view::npos && colon > 0 && colon + 1 < word.size() &&
           std::all_of(word.begin() + static_cast<std::ptrdiff_t>(colon) + 1, word.end(),
                       [](char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); });
}

void LineFilter::AddTagLevel(std::string_view word) {
    lowest_[std::string(word.substr(0, word.size() - 2))] = Rank(word.back());
}

void LineFilter::SetSpan(std::optional<TimePoint> since, std::optional<TimePoint> until) {
    since_ = since;
    until_ = until;
}

void LineFilter::SetEnd(size_t boot, int64_t ms) {
    end_boot_ = boot;
    end_ms_ = ms;
}

bool LineFilter::PassesTags(const Line& line) const {
    auto lowest = lowest_.find(line.source.tag);
    if (lowest == lowest_.end()) {
        lowest = lowest_.find("*");
    }
    if (lowest == lowest_.end() || lowest->second == kSilent) {
        return false;
    }
    return lowest->second <= kDebug || Rank(line.level) >= lowest->second;
}

void LineFilter::SetWallEnd(int64_t ms) {
    wall_end_ms_ = ms;
}

bool LineFilter::IsBefore(const Line& line, size_t boot, std::optional<int64_t> boot_time_ms,
                          const TimePoint& time, int64_t later_ms) const {
    const bool from_end = time.kind == TimePoint::Kind::kFromEnd;
    if (time.kind == TimePoint::Kind::kWall || (from_end && wall_end_ms_)) {
        const int64_t wall_ms = from_end ? *wall_end_ms_ + time.ms : time.ms;
        return !boot_time_ms || *boot_time_ms + line.time_ms < wall_ms + later_ms;
    }
    if (!from_end) {
        return line.time_ms < time.ms + later_ms;
    }
    return boot != end_boot_ || line.time_ms < end_ms_ + time.ms + later_ms;
}

bool LineFilter::Passes(const Line& line, size_t boot, std::optional<int64_t> boot_time_ms) const {
    if (since_ && IsBefore(line, boot, boot_time_ms, *since_, 0)) {
        return false;
    }
    if (until_ && !IsBefore(line, boot, boot_time_ms, *until_, 1)) {
        return false;
    }
    return (lowest_.empty() || PassesTags(line)) &&
           (pids_.empty() || pids_.count(line.source.pid) > 0) &&
           (tids_.empty() || tids_.count(line.source.tid) > 0);
}

bool LineFilter::Matches(const Line& line) const {
    return !pattern_ || (line.kind != Line::Message::kCode && pattern_->IsIn(line.message));
}

}  // namespace trelvo
