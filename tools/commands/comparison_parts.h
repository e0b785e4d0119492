#pragma once

#include <string>

#include "commands/decoder.h"
#include "commands/faults.h"
#include "patterns/comparison.h"

namespace trelvo {

// What the commands that compare logs have in common: how a side is read, how changes are worded.

// Adds the lines of an input, as far as they pass the options, to a side. Tells where there are
// none, if nothing else that was told explains it.
[[nodiscard]] ExitCode ReadSide(Comparison& comparison, Comparison::Side side,
                                DecodeOptions options, const std::string& input, Faults& faults);

// Two lines: how much there is to compare, and how much changed.
[[nodiscard]] std::string ComparisonText(const Comparison& comparison, const Differences& found);
// For programs; and for people, with its factor or old level: "x2.2", "was I".
[[nodiscard]] const char* KindName(Change::Kind kind);
[[nodiscard]] std::string ChangeText(const Change& change);
// Behind the word for a doubtful change.
inline constexpr char kDoubtMark = '?';

// Tells where there were too many patterns for all tags.
void TellFolded(const Comparison& comparison);

}  // namespace trelvo
