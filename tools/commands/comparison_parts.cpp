#include "commands/comparison_parts.h"

#include <memory>
#include <optional>
#include <utility>

#include "commands/output.h"
#include "text/units.h"

namespace trelvo {

namespace {

class SideFormat : public LineFormat {
public:
    SideFormat(Comparison& comparison, Comparison::Side side, TimeStyle style)
        : comparison_(comparison), side_(side), wall_(style.wall) {}

    void Append(const Line& line, const LineContext& context, std::string& /*out*/) override {
        comparison_.Add(side_, line, wall_ ? context.boot_time_ms : std::nullopt);
    }

private:
    Comparison& comparison_;
    Comparison::Side side_;
    bool wall_;
};

std::string SideText(const ComparedSide& side) {
    return std::to_string(side.lines) + " lines in " + SpanText(side.span_ms);
}

std::string RatioText(double ratio) {
    return Format(ratio < 9.95 ? "x%.2g" : "x%.0f", ratio);
}

}  // namespace

ExitCode ReadSide(Comparison& comparison, Comparison::Side side, DecodeOptions options,
                  const std::string& input, Faults& faults) {
    options.words.push_back(input);
    Decoder decoder(std::move(options), [&comparison, side](TimeStyle style) {
        return std::make_unique<SideFormat>(comparison, side, style);
    });
    const ExitCode result = decoder.Run();
    if (comparison.Of(side).lines == 0 && result == ExitCode::kSuccess) {
        faults.Tell(input + ": has no lines to compare", ExitCode::kNoMatch);
    }
    return result;
}

std::string ComparisonText(const Comparison& comparison, const Differences& found) {
    std::string text =
        "good: " + SideText(comparison.Of(Comparison::kGood)) +
        "; bad: " + SideText(comparison.Of(Comparison::kBad)) + ", most patterns " +
        RatioText(comparison.UsualRatio()) +
        Format("\n%zu of %zu patterns changed", found.changes.size(), comparison.Rows());
    if (!found.doubtful.empty()) {
        text += Format("; %zu more may be chance", found.doubtful.size());
    }
    return text;
}

const char* KindName(Change::Kind kind) {
    switch (kind) {
        case Change::Kind::kNew:
            return "new";
        case Change::Kind::kGone:
            return "gone";
        case Change::Kind::kMore:
            return "more";
        case Change::Kind::kLess:
            return "less";
        case Change::Kind::kBurst:
            return "burst";
        case Change::Kind::kLevel:
            return "level";
    }
    return "";
}

std::string ChangeText(const Change& change) {
    switch (change.kind) {
        case Change::Kind::kMore:
        case Change::Kind::kLess:
            return RatioText(change.ratio);
        case Change::Kind::kLevel:
            return Format("was %c", change.old_level);
        default:
            return KindName(change.kind);
    }
}

void TellFolded(const Comparison& comparison) {
    if (comparison.Folded()) {
        Complain("there are more than " + std::to_string(Comparison::kMaxRows) +
                 " patterns, tags and levels: what came later is compared as of one tag, *");
    }
}

}  // namespace trelvo
