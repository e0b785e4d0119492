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

size_t Bucket(int64_t after_ms, int64_t span_ms) {
    constexpr int64_t kParts = DumpStatistics::kMostParts;
    return static_cast<size_t>(after_ms * kParts / (span_ms + 1));
}

}  // namespace

std::vector<Program> ProgramsOf(const Processes& processes) {
    std::map<std::string_view, Program> programs;
    for (const auto& [process, tags] : processes) {
        const auto most = std::max_element(
            tags.begin(), tags.end(),
            [](const auto& a, const auto& b) { return a.second.records < b.second.records; });
        Program& program = programs[most->first];
        program.name = most->first;
        ++program.processes;
        for (const auto& [tag, share] : tags) {
            program.share += share;
        }
    }
    std::vector<Program> result;
    result.reserve(programs.size());
    for (auto& [name, program] : programs) {
        result.push_back(std::move(program));
    }
    return result;
}

DumpStatistics MeasureDump(DumpReader& reader, const Part& part, const CodeTables* tables) {
    DumpStatistics result;
    result.policy_version = reader.PolicyVersion();
    result.bytes = reader.RecordsOffset();
    result.dictionary_bytes = reader.Sources().Bytes();
    result.damage = part.damage;
    result.first_ms = part.start_ms;
    result.last_ms = part.EndMs();
    // What the dump before ends with may be later than the records that both hold.
    if (const auto& clock = part.skipped > 0 && part.own_clock ? part.own_clock : part.clock) {
        result.first_boot_time_ms = clock->boot_time_ms;
        result.last_boot_time_ms = part.last_clock->boot_time_ms;
        if (part.start_ms >= kTimesEndMs) {
            result.first_ms = std::max(part.start_ms, clock->monotonic_ms);
            result.last_ms =
                std::max(result.first_ms, result.last_ms);  // of clock lines out of order
        }
    }

    std::vector<SourceShare> shares(reader.Sources().Size());
    int64_t time_ms = part.start_ms;
    Record record;
    // The survey has told how many are whole: reading stops short of the damage.
    for (uint64_t count = 0; count < part.records && reader.Next(record); ++count) {
        time_ms += count == 0 ? 0 : record.delta_ms;
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
        ++result.timeline[Bucket(time_ms - part.start_ms, part.last_ms - part.start_ms)];
    }
    for (const SourceShare& of_source : shares) {
        if (of_source.share.records == 0) {
            continue;
        }
        const std::string tag(of_source.source.tag);
        result.tags[tag] += of_source.share;
        result.processes[{part.boot, of_source.source.pid}][tag] += of_source.share;
    }
    return result;
}

}  // namespace trelvo
