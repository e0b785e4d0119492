#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "dump/line.h"
#include "text/columns.h"

namespace trelvo {

// How the time of a line is shown.
struct TimeStyle {
    bool wall = false;  // wall-clock time instead of seconds since boot
    bool utc = false;   // of the wall-clock; else in the machine's time zone
    bool host = false;  // with the name of the machine that logged the line
};

// What a format knows of a line beyond the line itself.
struct LineContext {
    std::string_view file;  // the dump's name
    std::string_view host;
    // Since 1970. Where the style is wall-clock time and nothing tells it, times are shown without.
    std::optional<int64_t> boot_time_ms;
    std::string_view boot = {};   // 32 hexadecimal digits that all lines of the boot share
    size_t boot_place = 0;        // of that boot in the timeline
    Break before = Break::kNone;  // between this line and the one before that passed the filters
    bool latest = false;          // the time is the latest possible: the end of the dump is lost
    int64_t gap_ms = 0;           // what gaps there have left out; 0 also where nothing tells it
};

// Turns lines into the text of one output format, a line with its line feed at a time.
class LineFormat {
public:
    LineFormat() = default;
    LineFormat(const LineFormat&) = delete;
    LineFormat& operator=(const LineFormat&) = delete;
    virtual ~LineFormat() = default;

    // Whether words about the log, such as a gap, may stand between the lines.
    [[nodiscard]] virtual bool TakesMarkers() const { return false; }
    // Whether the breaks in the contexts are all it takes: nothing is said of them elsewhere.
    [[nodiscard]] virtual bool TakesBreaks() const { return false; }
    // Asked after the last line: whether all lines are to be given once more.
    [[nodiscard]] virtual bool WantsAgain() { return false; }
    // What comes before the first line.
    virtual void AppendHead(std::string& /*out*/) const {}
    virtual void Append(const Line& line, const LineContext& context, std::string& out) = 0;
};

// How lines for people are laid out.
struct Layout {
    bool color = false;
    bool several = false;  // a line feed in a message begins another line
    size_t width = 0;      // where longer lines go on in another one; 0: nowhere
};

// "short": time, level, tag, ids and message in columns, which must outlive the format; the id of a
// thread only where it is not that of its process. Lines go on under their message.
[[nodiscard]] std::unique_ptr<LineFormat> MakeShortFormat(TimeStyle style, Layout layout,
                                                          const Columns& columns);
// "threadtime": MM-DD hh:mm:ss.mmm PID TID LEVEL TAG: MESSAGE, as viewers of mobile logs read it.
// Without a boot time the clock starts at midnight of January 1st.
[[nodiscard]] std::unique_ptr<LineFormat> MakeThreadtimeFormat(TimeStyle style);
// "json": an object a line (docs/decode.md).
[[nodiscard]] std::unique_ptr<LineFormat> MakeJsonFormat(TimeStyle style);
// "csv": the same fields, after a line of their names.
[[nodiscard]] std::unique_ptr<LineFormat> MakeCsvFormat(TimeStyle style, bool escape);
// "export": the Journal Export Format, an entry a line. Needs the boot time of every line.
[[nodiscard]] std::unique_ptr<LineFormat> MakeExportFormat();
// "raw": the message alone, escaped only where a terminal would get it.
[[nodiscard]] std::unique_ptr<LineFormat> MakeRawFormat(bool escape);

}  // namespace trelvo
