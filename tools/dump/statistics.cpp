#include "dump/statistics.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "policy/code_tables.h"
#include "text/escape.h"

namespace trelvo {

namespace {

// One place in the dictionary. The source's tag lives as long as the reader.
struct SourceShare {
    Source source;
    Share share;
    uint64_t text_bytes = 0;  // of a line without its seconds and its message
};

// Of a line's seconds, which have three decimals.
uint64_t SecondsWidth(int64_t time_ms) {
    return std::to_string(std::abs(time_ms) / 1000).size() + (time_ms < 0 ? 5 : 4);
}

uint64_t FrameWidth(const Source& source) {
    constexpr std::string_view kFrame = " L/(P , T ): \n";
    return kFrame.size() + source.tag.size() + std::to_string(source.pid).size() +
           std::to_string(source.tid).size();
}

size_t Part(int64_t after_ms, int64_t span_ms) {
    constexpr int64_t kParts = DumpStatistics::kMostParts;
    return static_cast<size_t>(after_ms * kParts / (span_ms + 1));
}

}  // namespace

DumpStatistics MeasureDump(DumpReader& reader, const CodeTables* tables) {
    const Extent extent = reader.Measure();
    DumpStatistics result;
    result.policy_version = reader.PolicyVersion();
    result.bytes = reader.RecordsOffset();
    result.dictionary_bytes = reader.Sources().Bytes();
    result.first_ms = reader.LastLogTime() - extent.span_ms;
    result.last_ms = reader.LastLogTime();
    result.damage = extent.damage;

    std::vector<SourceShare> shares(reader.Sources().Size());
    const int64_t first_ms = result.first_ms;
    int64_t time_ms = first_ms;
    Record record;
    ClockLines clocks;
    for (uint64_t count = 0; count < extent.records && reader.Next(record); ++count) {
        time_ms += count == 0 ? 0 : record.delta_ms;
        if (clocks.Take(record) && !result.first_boot_time_ms) {
            result.first_boot_time_ms = clocks.Last()->boot_time_ms;
            // Times count back from the newest line: where it is lost, all are too late.
            const int64_t late = time_ms - clocks.Last()->monotonic_ms;
            if (late > (extent.damage ? 0 : kClockToleranceMs)) {
                result.first_ms -= late;
                result.last_ms -= late;
            }
            if (result.first_ms >= kTimesEndMs) {
                result.first_ms = std::max(result.first_ms, clocks.Last()->monotonic_ms);
            }
        }
        const Share share{1, record.end_offset - record.offset};
        SourceShare& of_source = shares[record.source.place];
        if (of_source.share.records == 0) {
            of_source.source = record.source;
            of_source.text_bytes = FrameWidth(record.source);
        }
        of_source.share += share;

        const auto message =
            tables != nullptr ? tables->Message(record.source.tag, record.message) : std::nullopt;
        if (message || (tables == nullptr && !IsText(record.message))) {
            result.coded += share;
        }
        result.text_bytes +=
            SecondsWidth(time_ms) + of_source.text_bytes + message.value_or(record.message).size();

        const uint64_t message_offset = record.end_offset - record.message.size();
        result.all += share;
        result.bytes = record.end_offset;
        result.delta_bytes += record.header_offset - record.offset;
        result.header_bytes += record.length_offset - record.header_offset;
        result.length_bytes += message_offset - record.length_offset;
        result.message_bytes += record.message.size();
        ++result.levels[record.level];
        ++result.timeline[Part(time_ms - first_ms, extent.span_ms)];
    }
    if (clocks.Last()) {
        result.host = clocks.Host();
        result.last_boot_time_ms = clocks.Last()->boot_time_ms;
        if (result.last_ms >= kTimesEndMs) {
            result.last_ms = std::max(result.last_ms, clocks.Last()->monotonic_ms);
        }
    }
    for (const SourceShare& of_source : shares) {
        if (of_source.share.records == 0) {
            continue;
        }
        const std::string tag(of_source.source.tag);
        result.tags[tag] += of_source.share;
        result.processes[{tag, of_source.source.pid}] += of_source.share;
    }
    return result;
}

}  // namespace trelvo
