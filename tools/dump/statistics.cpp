#include "dump/statistics.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "policy/code_tables.h"
#include "text/escape.h"

namespace {

// One place in the dictionary. The origin's tag lives as long as the reader.
struct Writer {
    Origin origin;
    Share share;
    uint64_t text_bytes = 0;  // of a line without its seconds and its message
};

// Of a line's seconds, which have three decimals.
uint64_t SecondsWidth(int64_t time_ms) {
    return std::to_string(std::abs(time_ms) / 1000).size() + (time_ms < 0 ? 5 : 4);
}

uint64_t FrameWidth(const Origin& origin) {
    constexpr std::string_view kFrame = " L/(P , T ): \n";
    return kFrame.size() + origin.tag.size() + std::to_string(origin.pid).size() +
           std::to_string(origin.tid).size();
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
    result.dictionary_bytes = reader.Origins().Bytes();
    result.first_ms = reader.LastLogTime() - extent.span_ms;
    result.last_ms = reader.LastLogTime();
    result.damage = extent.damage;

    std::vector<Writer> writers(reader.Origins().Size());
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
        Writer& writer = writers[record.origin.place];
        if (writer.share.records == 0) {
            writer.origin = record.origin;
            writer.text_bytes = FrameWidth(record.origin);
        }
        writer.share += share;

        const auto message =
            tables != nullptr ? tables->Message(record.origin.tag, record.message) : std::nullopt;
        if (message || (tables == nullptr && !IsText(record.message))) {
            result.coded += share;
        }
        result.text_bytes +=
            SecondsWidth(time_ms) + writer.text_bytes + message.value_or(record.message).size();

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
    for (const Writer& writer : writers) {
        if (writer.share.records == 0) {
            continue;
        }
        const std::string tag(writer.origin.tag);
        result.tags[tag] += writer.share;
        result.processes[{tag, writer.origin.pid}] += writer.share;
    }
    return result;
}
