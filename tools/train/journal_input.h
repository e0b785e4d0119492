#pragma once

#include <functional>

#include "io/input.h"
#include "train/log_input.h"

namespace trelvo {

// Reads the entries of a journal, and hands over the lines that a recorder would be given for them:
// the capture names a tag, splits a message by its lines, and a message that brings its own prefix
// loses it. Entries without a message are passed over; so is one that cannot be read, which is told
// in the summary, or ends the reading where it hides where the next one begins.
//
// An object a line, as `journalctl -o json` writes them. That gives no message of 4 KiB or more
// unless it is asked for --all.
void ReadJournalJson(Input& input, InputSummary& summary,
                     const std::function<void(const TrainingLine&)>& sink);
// The Journal Export Format, of `journalctl -o export` or `trelvoctl decode -o export`.
void ReadJournalExport(Input& input, InputSummary& summary,
                       const std::function<void(const TrainingLine&)>& sink);

}  // namespace trelvo
