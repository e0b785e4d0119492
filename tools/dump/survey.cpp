#include "dump/survey.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

namespace trelvo {

namespace {

uint64_t Mix(uint64_t hash, uint64_t value) {
    constexpr uint64_t kOddConstant = 0x9E3779B97F4A7C15;  // 2^64 divided by the golden ratio
    return (hash ^ value) * kOddConstant ^ (hash >> 29);
}

uint64_t Hash(const Record& record) {
    const std::hash<std::string_view> of_text;
    uint64_t hash = Mix(of_text(record.message), of_text(record.source.tag));
    hash = Mix(hash, static_cast<uint32_t>(record.delta_ms));
    hash = Mix(hash, record.index);
    hash = Mix(hash, static_cast<uint32_t>(record.source.pid));
    hash = Mix(hash, static_cast<uint32_t>(record.source.tid));
    return Mix(hash, static_cast<unsigned char>(record.level));
}

void AddPrint(const Record& record, Survey& survey) {
    constexpr size_t kStep = 4096;
    constexpr uint64_t kBytes = sizeof(Survey::Print) + sizeof(uint32_t);  // as FindOverlap takes
    if (survey.prints.size() % kStep == 0 && !survey.charge.Add(kStep * kBytes)) {
        throw DamageError(record.offset,
                          std::string("comparison with other dumps ") + MemoryCharge::kExceeded);
    }
    // Beyond that no times are told apart.
    const int64_t ms = std::min<int64_t>(survey.span_ms, std::numeric_limits<int32_t>::max());
    survey.prints.push_back({static_cast<uint32_t>(Hash(record) >> 32), static_cast<int32_t>(ms)});
}

// The search of Knuth, Morris and Pratt for a pattern of prints: linear, whatever these hold. Tells
// at each place how many of the pattern's first ones end there, until it is told to stop.
template <typename Iterator, typename Told>
void Search(Iterator begin, Iterator end, Iterator place, Iterator stop, const Told& told) {
    const auto size = static_cast<size_t>(end - begin);
    if (size == 0) {
        return;
    }
    // For each beginning of the pattern, the longest shorter one that it ends with.
    std::vector<uint32_t> shorter(size, 0);
    const auto extend = [&](uint32_t matched, uint32_t hash) {
        while (matched > 0 && (matched == size || begin[matched].hash != hash)) {
            matched = shorter[matched - 1];
        }
        return begin[matched].hash == hash ? matched + 1 : matched;
    };
    for (size_t i = 1; i < size; ++i) {
        shorter[i] = extend(shorter[i - 1], begin[static_cast<ptrdiff_t>(i)].hash);
    }
    uint32_t matched = 0;
    for (; place != stop; ++place) {
        matched = extend(matched, place->hash);
        if (told(matched, place)) {
            return;
        }
    }
}

}  // namespace

bool ClockLines::Read(const Record& record) {
    const auto line = ReadClockLine(record);
    if (!line || (last_ && line->boot != boot_)) {
        return false;
    }
    boot_ = line->boot;
    host_ = line->host;
    last_ = ClockPoint{line->boot_time_ms, line->monotonic_ms};
    return true;
}

Survey TakeSurvey(Input& input, bool with_prints) {
    DumpReader reader(input);
    Survey survey;
    survey.version = reader.PolicyVersion();
    survey.last_log_time = reader.LastLogTime();
    Record record;
    try {
        for (; reader.Next(record); ++survey.records) {
            if (survey.records == 0) {
                survey.first_delta_ms = record.delta_ms;
                survey.fresh = record.delta_ms == 0 && record.index == 1;
            } else {
                survey.span_ms += record.delta_ms;
                survey.silence_ms = std::max<int64_t>(survey.silence_ms, record.delta_ms);
            }
            if (survey.clocks.Take(record) && !survey.first_clock) {
                survey.first_clock = survey.clocks.Last();
                survey.first_clock_ms = survey.span_ms;
            }
            if (with_prints) {
                AddPrint(record, survey);
            }
        }
    } catch (const DamageError& error) {
        survey.damage = error;
    }
    // Times count back from the newest line: where it is lost, all are too late by as much.
    if (survey.first_clock) {
        const int64_t late = survey.last_log_time - survey.span_ms + survey.first_clock_ms -
                             survey.first_clock->monotonic_ms;
        if (!survey.damage && late > kClockToleranceMs) {
            survey.damage = DamageError(
                record.end_offset, "the dump was cut between two records, as its clock lines tell");
        }
        survey.late_ms = survey.damage ? std::max<int64_t>(late, 0) : 0;
    }
    return survey;
}

Overlap FindOverlap(const Survey& earlier, const Survey& later) {
    Overlap overlap;
    Search(later.prints.begin(), later.prints.end(), earlier.prints.begin(), earlier.prints.end(),
           [&](size_t matched, auto place) {
               overlap = {matched, place->ms};
               return matched == later.prints.size() && later.damage;
           });
    return overlap;
}

Overlap FindTail(const Survey& earlier, const Survey& later) {
    Overlap tail;
    // Backwards, until the second record of the earlier one is among those that match.
    const auto second = earlier.prints.rend() -
                        std::min<ptrdiff_t>(2, static_cast<ptrdiff_t>(earlier.prints.size()));
    Search(later.prints.rbegin(), later.prints.rend(), earlier.prints.rbegin(),
           earlier.prints.rend(), [&](size_t matched, auto place) {
               if (matched == 0 || place < second) {
                   return false;
               }
               tail = {matched, (place - static_cast<ptrdiff_t>(matched - 1))->ms};
               return true;
           });
    return tail;
}

}  // namespace trelvo
