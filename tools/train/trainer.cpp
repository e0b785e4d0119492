#include "train/trainer.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace trelvo {

namespace {

// What an entry takes in the service besides text and code: two lengths, its share of the index,
// and what is lost around both.
constexpr uint64_t kServiceEntryBytes = 15;

uint64_t ServiceMemory(const TagTable& table) {
    uint64_t bytes = 0;
    for (const CodedText& coded : table.codes) {
        bytes += coded.text.size() + coded.code.size() + kServiceEntryBytes;
    }
    return bytes;
}

// SQLite's texts end at a zero byte as the service reads them, and no message has a line feed.
bool CanBeLookedUp(std::string_view text) {
    return text.find('\0') == std::string_view::npos && text.find('\n') == std::string_view::npos;
}

std::vector<CodedText> TrainTag(const MessageCounts::Texts& texts, const TrainingLimits& limits) {
    std::vector<CountedText> candidates;
    TextSet taken;
    for (const auto& [text, count] : texts) {
        if (CouldBeCode(text)) {
            taken.insert(text);
        }
        if (count >= limits.least_count && CanBeLookedUp(text)) {
            candidates.push_back({text, count});
        }
    }
    return AssignCodes(std::move(candidates), taken, limits.most_entries);
}

}  // namespace

Training Train(const MessageCounts& counts, const TrainingLimits& limits) {
    Training training;
    for (const auto& [tag, texts] : counts.Tags()) {
        std::vector<CodedText> codes = TrainTag(texts, limits);
        if (codes.empty()) {
            continue;
        }
        if (!IsPolicyText(tag)) {
            training.unfit_tags.push_back(tag);
            continue;
        }
        for (const CodedText& coded : codes) {
            const auto count = static_cast<double>(coded.count);
            training.coded_lines += count;
            training.saved_bytes += count * static_cast<double>(MessageCost(coded.text.size()) -
                                                                MessageCost(coded.code.size()));
        }
        training.entries += codes.size();
        training.tables.push_back({tag, std::move(codes)});
        training.memory_bytes += ServiceMemory(training.tables.back());
    }
    std::sort(training.tables.begin(), training.tables.end(),
              [](const TagTable& a, const TagTable& b) { return a.tag < b.tag; });
    std::sort(training.unfit_tags.begin(), training.unfit_tags.end());
    return training;
}

Evaluation::Evaluation(const std::vector<TagTable>& tables) {
    for (const TagTable& table : tables) {
        for (const CodedText& coded : table.codes) {
            key_.assign(table.tag).append(1, '\0').append(coded.text);
            code_sizes_.emplace(key_, coded.code.size());
        }
    }
}

void Evaluation::BeginInput() {
    model_ = RecordModel();
    totals_ = EvaluationTotals();
}

void Evaluation::Add(const TrainingLine& line) {
    if (line.delta_ms < 0) {
        ++totals_.refused;
        return;
    }
    const size_t text_cost = MessageCost(line.message.size());
    const size_t plain = model_.RecordSize(static_cast<uint64_t>(line.delta_ms), line.tag, line.pid,
                                           line.tid, text_cost);
    ++totals_.lines;
    totals_.text_bytes += line.text_bytes;
    totals_.plain_bytes += plain;
    totals_.coded_bytes += plain;
    key_.assign(line.tag).append(1, '\0').append(line.message);
    if (const auto code = code_sizes_.find(key_); code != code_sizes_.end()) {
        ++totals_.coded;
        totals_.coded_bytes -= text_cost - MessageCost(code->second);
    }
}

}  // namespace trelvo
