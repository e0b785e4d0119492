#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dump/dump_reader.h"
#include "policy/code_tables.h"
#include "timeline/survey.h"

// What lies between a dump's first line and the line before it.
enum class Break {
    kNone,   // nothing is missing
    kGap,    // lines that no dump holds
    kFresh,  // the recorder was emptied by a dump or started: whether lines are missing is unknown
    kRestart,  // the service was started again and recorded lines of the same boot once more
    kReboot,   // time starts over
};

// A line of the log. The views live until the visitor returns.
struct Line {
    enum class Message {
        kText,        // as it was logged
        kTranslated,  // a code, turned into the text that it stands for
        kCode,        // no text, and no tables to translate it
    };

    int64_t time_ms = 0;  // of kernel time
    char level = 0;
    Origin origin;
    Message kind = Message::kText;
    std::string_view message;  // text, or the bytes of a code
    size_t dump = 0;           // place of its dump in the timeline
};

// A dump's share of a timeline.
struct Part {
    std::string name;  // for messages and output
    size_t boot = 0;   // 0 for the boot of the first dump, and so on
    Break before = Break::kNone;
    uint64_t skipped = 0;  // records at its beginning that dumps before it hold too
    uint64_t records = 0;  // all that are whole
    int64_t start_ms = 0;  // time of the first record
    int64_t from_ms = 0;   // time of the first one that is not skipped
    int64_t last_ms = 0;   // time of the last one
    bool exact = true;     // false: records are missing at the end, times are the latest possible
    std::optional<DumpError> damage;
    uint64_t ambiguous = 0;  // translated messages whose codes are text as well; known once visited
    // When the machine booted, as far as the file's own time tells: milliseconds since 1970.
    std::optional<int64_t> boot_time_ms;
};

// Several dumps of one recorder as one log: in order of time, every line once.
//
// Dumps are added in the order in which they were written. Of two that follow each other, those
// records of the later one that the earlier one ends with are skipped. Where the later one shares
// none, the break between them is classified. Within a boot the parts are merged by time. Holds a
// few bytes for each record of two dumps, and no messages.
class Timeline {
public:
    // Called for each line, in order. `before` is the break in front of it; kNone for most lines.
    // False ends the visit.
    using Visitor = std::function<bool(const Line& line, Break before)>;
    // Gives the bytes of a dump from their start, each time that it is called.
    using Opener = std::function<std::unique_ptr<ByteSource>()>;

    // `several`: more than one dump will be added, so overlaps have to be found.
    explicit Timeline(bool several) : several_(several) {}

    // Adds a dump that was written after those before. The tables must outlive the timeline; null
    // means none. Throws DumpError when the dump holds not even one whole dictionary,
    // std::system_error when it cannot be read.
    void Add(std::string name, const Opener& open, const CodeTables* tables);

    [[nodiscard]] const std::vector<Part>& Parts() const { return parts_; }
    [[nodiscard]] size_t Boots() const { return parts_.empty() ? 0 : parts_.back().boot + 1; }
    // The earliest boot time that its dumps' own times allow: milliseconds since 1970.
    [[nodiscard]] std::optional<int64_t> BootTime(size_t boot) const;

    // Visits the lines of all parts from this one on. `done` is called for each part once its last
    // line was visited. Throws std::system_error when a dump cannot be read again.
    void Visit(size_t first_part, const Visitor& visitor,
               const std::function<void(const Part&)>& done);

private:
    class Cursor;
    class Replays;

    void Link(Part& part, const Survey& survey);
    // False when the visitor has ended the visit.
    bool VisitBoot(size_t first, size_t end, const Visitor& visitor,
                   const std::function<void(const Part&)>& done);

    bool several_;
    std::vector<Part> parts_;
    std::vector<Opener> openers_;            // for each part
    std::vector<const CodeTables*> tables_;  // for each part
    Survey last_survey_;
    std::optional<size_t> last_part_;  // the part that last_survey_ is of
};
