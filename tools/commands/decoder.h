#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "commands/dump_files.h"
#include "commands/faults.h"
#include "commands/line_sink.h"
#include "commands/progress.h"
#include "dump/timeline.h"
#include "policy/policies.h"
#include "text/clock.h"
#include "text/line_filter.h"
#include "text/line_format.h"

namespace trelvo {

struct DecodeOptions {
    std::vector<std::string> words;  // TAG:LEVEL and inputs
    std::optional<std::string> policy;
    std::optional<std::string> policies;
    bool force = false;
    bool one_boot = false;
    bool follow = false;
    std::vector<int32_t> pids;
    std::vector<int32_t> tids;
    std::optional<std::string> since;
    std::optional<std::string> until;
    std::optional<std::string> grep;
    std::optional<size_t> last;
    bool reversed = false;
    std::string format = "short";
    std::string color = "auto";
    bool no_pager = false;
    std::optional<std::string> boot_time;
    bool wall = false;
    bool monotonic = false;
    bool utc = false;
};

// Prints dumps as one log, in the order, the choice and the format that the options ask for.
// Everything that cannot be read costs one line on standard error; the rest is printed.
class Decoder {
public:
    using FormatMaker = std::function<std::unique_ptr<LineFormat>(TimeStyle)>;

    // `make_format` makes the format in the place of that of the options. Throws FilterError when
    // an option's value cannot be used. `passes`: how often the format takes all lines.
    explicit Decoder(DecodeOptions options, FormatMaker make_format = {}, unsigned passes = 1);

    // Whether a word is TAG:LEVEL and not an input.
    [[nodiscard]] static bool IsFilter(const std::string& word);

    [[nodiscard]] ExitCode Run();

    // REQUIRES: Run() made a format.
    [[nodiscard]] const Timeline& Log() const { return *timeline_; }
    [[nodiscard]] const Columns& Widths() const { return columns_; }

private:
    struct LastLine {
        int64_t time_ms = 0;
        std::optional<int64_t> boot_time_ms;
        Break before = Break::kNone;  // the next one that is shown
        std::string marker;           // of it
        int64_t gap_ms = 0;           // of gaps before it
    };

    [[nodiscard]] std::vector<DumpFile> InOrder(const std::vector<std::string>& paths);
    void FitColumns(const Dictionary& sources);
    [[nodiscard]] bool IsKnown(const DumpFile& dump) const;
    void Add(const DumpFile& dump);
    // Decides how times are shown, by the options and by what the dumps hold. Throws FilterError
    // where the options want what the dumps cannot tell.
    void SettleStyle();
    // Of the machine, since 1970, in wall-clock style and as far as it is known.
    [[nodiscard]] std::optional<int64_t> BootTime(const Line& line, size_t boot) const;
    [[nodiscard]] std::string TimeText(int64_t ms, std::optional<int64_t> boot_time_ms) const;
    [[nodiscard]] std::string MarkerText(Break before, const Line& line, const Part& part);
    void ShowFrom(size_t first_part);
    void Show(const Line& line, Break before, const Part& part);
    void TellFaults(const Part& part);
    // Which messages could not be translated, since nobody gave tables.
    void TellCodes();

    DecodeOptions options_;
    FormatMaker make_format_;
    unsigned passes_;
    DumpFiles files_;
    Columns columns_;  // of what is shown in columns
    std::unique_ptr<LineFormat> format_;
    LineSink sink_;
    LineFilter filter_;
    std::vector<std::string> inputs_;
    std::optional<int64_t> boot_time_ms_;  // as given, since 1970
    std::optional<Policies> policies_;
    std::optional<Progress> progress_;
    std::optional<Timeline> timeline_;
    std::map<std::string, int64_t> known_;  // when the files that were read had been written
    std::optional<TimePoint> since_;
    std::optional<TimePoint> until_;
    TimeStyle style_;
    std::vector<std::string> boot_ids_;
    std::vector<std::optional<int64_t>> guessed_;  // boot times by the files' times, in that style
    std::string text_;                             // of the line at hand
    std::map<std::string, LastLine> last_;         // by host
    std::optional<size_t> last_boot_;              // of the line before
    LastLine* last_line_ = nullptr;                // of that boot's host
    bool clock_lines_ = false;                     // are shown
    bool again_ = false;                           // all lines once more: their faults were told
    uint64_t shown_ = 0;
    uint64_t asked_for_ = 0;                 // lines that pass all filters but the pattern
    std::vector<std::string> versions_;      // of the policy, for each part
    std::map<std::string, uint64_t> codes_;  // messages shown as codes, by version
    Faults faults_;
};

}  // namespace trelvo
