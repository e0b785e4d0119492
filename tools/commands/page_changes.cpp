#include "commands/page_changes.h"

#include <algorithm>
#include <string>

#include "commands/comparison_parts.h"
#include "text/escape.h"

namespace trelvo {

using Json = nlohmann::ordered_json;

void PageChanges::Add(const Line& line, std::optional<int64_t> boot_time_ms) {
    numbers_.push_back(comparison_.Add(Comparison::kBad, line, boot_time_ms));
}

void PageChanges::Finish() {
    found_ = comparison_.Finish();
    uint32_t most = 0;
    for (const uint32_t number : numbers_) {
        most = std::max(most, number);
    }
    changes_.assign(size_t{most} + 1, 0);
    uint32_t change = 0;
    for (const auto* const list : {&found_.changes, &found_.doubtful}) {
        for (const Change& each : *list) {
            ++change;
            for (const uint32_t number : each.numbers) {
                if (number <= most) {  // else it is that of lines of the good side
                    changes_[number] = change;
                }
            }
        }
    }
}

Json PageChanges::ToJson() const {
    Json rows = Json::array();
    for (const auto* const list : {&found_.changes, &found_.doubtful}) {
        for (const Change& change : *list) {
            std::string label = ChangeText(change);
            if (list == &found_.doubtful) {
                label += kDoubtMark;
            }
            rows.push_back({{"label", label},
                            {"level", std::string(1, change.level)},
                            {"tag", Utf8(change.tag)},
                            {"text", Utf8(change.text)},
                            {"example", Utf8(change.example) + (change.cut ? "…" : "")},
                            {"good", change.good.count},
                            {"bad", change.bad.count},
                            {"ms", change.time.Ms()},
                            {"line", change.time.line},
                            {"wall", change.time.boot_time_ms.has_value()}});
        }
    }
    return {{"summary", ComparisonText(comparison_, found_)},
            {"changed", found_.changes.size()},
            {"rows", rows}};
}

}  // namespace trelvo
