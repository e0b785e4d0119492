// How lines are chosen and written: clock, times as people give them, filter and formats.

#include <gmock/gmock.h>

#include <cstdlib>
#include <ctime>

#include "text/clock.h"
#include "text/line_filter.h"
#include "text/line_format.h"
#include "text/time_point.h"

using namespace trelvo;

namespace {

using testing::ElementsAreArray;
using Kind = TimePoint::Kind;

// The machine's time zone, as POSIX writes it: hours and minutes west of Greenwich.
class TimeZone {
public:
    explicit TimeZone(const char* zone) {
        setenv("TZ", zone, 1);
        tzset();
    }
    TimeZone(const TimeZone&) = delete;
    TimeZone& operator=(const TimeZone&) = delete;
    ~TimeZone() {
        unsetenv("TZ");
        tzset();
    }
};

TEST(Clock, WritesTimesOfAllZonesAndBefore1970) {
    struct {
        const char* zone;
        int64_t ms;
        const char* local;
        const char* utc;
    } const rows[] = {
        {"XXX-5:30", 1, "1970-01-01T05:30:00.001+05:30", "1970-01-01T00:00:00.001Z"},
        {"XXX3:05", 60050, "1969-12-31T20:56:00.050-03:05", "1970-01-01T00:01:00.050Z"},
        {"UTC0", -1, "1969-12-31T23:59:59.999+00:00", "1969-12-31T23:59:59.999Z"},
    };
    for (const auto& row : rows) {
        const TimeZone zone(row.zone);
        for (const bool utc : {false, true}) {
            std::string text;
            Clock(utc).Append(row.ms, "%Y-%m-%dT%H:%M:%S", true, text);
            EXPECT_EQ(text, utc ? row.utc : row.local);
        }
    }
    // One clock, for times that come and go.
    Clock clock(true);
    std::string text;
    for (const int64_t ms : {999, 1000, 1001, 61001}) {
        clock.Append(ms, "%M:%S", false, text += ' ');
    }
    for (const int64_t ms : {int64_t{-1}, int64_t{0}, int64_t{12005}, int64_t{3000000000}}) {
        AppendSeconds(ms, text += ' ');
    }
    EXPECT_EQ(text, " 00:00.999 00:01.000 00:01.001 01:01.001 -0.001 0.000 12.005 3000000.000");
}

TEST(TimePoint, IsReadAsPeopleWriteIt) {
    constexpr int64_t kDayMs = 86400000;
    const TimeZone zone("XXX-5:30");
    struct {
        const char* text;
        bool utc;
        Kind kind;
        int64_t ms;
    } const rows[] = {
        {"12.5", false, Kind::kSinceBoot, 12500},
        {"0.0004", false, Kind::kSinceBoot, 0},
        {"2 min", false, Kind::kSinceBoot, 120000},
        {"-10s", false, Kind::kFromEnd, -10000},
        {"-1.5m", false, Kind::kFromEnd, -90000},
        {"-2h", false, Kind::kFromEnd, -7200000},
        {"-1 day", false, Kind::kFromEnd, -kDayMs},
        {"1970-01-02", true, Kind::kWall, kDayMs},
        {"1970-01-02", false, Kind::kWall, kDayMs - 19800000},
        {"1970-01-02 00:01", true, Kind::kWall, kDayMs + 60000},
        {"1970-01-02T00:00:01.250Z", false, Kind::kWall, kDayMs + 1250},
        {"1970-01-02T05:30:00+05:30", true, Kind::kWall, kDayMs},
        {"1970-01-01T20:55:00-03:05", true, Kind::kWall, kDayMs},
    };
    for (const auto& row : rows) {
        const TimePoint point = ParseTimePoint(row.text, row.utc);
        EXPECT_EQ(point.ms, row.ms) << row.text;
        EXPECT_EQ(point.kind, row.kind) << row.text;
    }
    EXPECT_EQ(ParseTimePoint("today", true).ms % kDayMs, 0);
    EXPECT_EQ(ParseTimePoint("yesterday", false).ms % kDayMs, kDayMs - 19800000);
    for (const char* wrong : {"", "-", "5x", "1e3", "1970-13-01", "24:00", "-5 min ago", "1e99"}) {
        EXPECT_THROW((void)ParseTimePoint(wrong, true), FilterError) << wrong;
    }
}

// By boot and milliseconds; the second boot was up to 20,000 ms, which is 120,000 since 1970.
TEST(LineFilter, SpansCountBackFromTheEndOfTheLastBoot) {
    struct {
        const char* situation;
        std::optional<TimePoint> since;
        std::optional<TimePoint> until;
        bool wall;
        std::vector<std::string> passing;
    } const rows[] = {
        {"from the end", TimePoint{-10000, Kind::kFromEnd}, {}, false, {"1:10000", "1:20000"}},
        {"up to it",
         {},
         TimePoint{-10000, Kind::kFromEnd},
         false,
         {"0:0", "0:15000", "1:100", "1:10000"}},
        {"since boot, in each",
         TimePoint{10000, Kind::kSinceBoot},
         TimePoint{15000, Kind::kSinceBoot},
         false,
         {"0:15000", "1:10000"}},
        {"from the end by the clock",
         TimePoint{-60000, Kind::kFromEnd},
         {},
         true,
         {"0:15000", "1:100", "1:10000", "1:20000"}},
        {"by the clock",
         TimePoint{65000, Kind::kWall},
         TimePoint{110000, Kind::kWall},
         true,
         {"0:15000", "1:100", "1:10000"}},
    };
    for (const auto& row : rows) {
        LineFilter filter;
        filter.SetSpan(row.since, row.until);
        filter.SetEnd(1, 20000);
        if (row.wall) {
            filter.SetWallEnd(120000);
        }
        std::vector<std::string> passing;
        for (const auto& [boot, ms] : std::vector<std::pair<size_t, int64_t>>{
                 {0, 0}, {0, 15000}, {1, 100}, {1, 10000}, {1, 20000}}) {
            Line line;
            line.time_ms = ms;
            const std::optional<int64_t> boot_time_ms =
                row.wall ? std::optional<int64_t>(boot == 0 ? 50000 : 100000) : std::nullopt;
            if (filter.Passes(line, boot, boot_time_ms)) {
                passing.push_back(std::to_string(boot) + ":" + std::to_string(ms));
            }
        }
        EXPECT_THAT(passing, ElementsAreArray(row.passing)) << row.situation;
    }
}

TEST(LineFilter, EveryKindOfFilterMustPass) {
    struct {
        std::vector<const char*> levels;
        int pid;
        int tid;
        const char* passing;  // of D, I, E and W of the tags A and B; the PID is that of the tag
    } const rows[] = {
        {{}, 0, 0, "AD AI AE AW BD BI BE BW "},
        {{"A:I"}, 0, 0, "AI AE AW "},
        {{"A:w", "*:D"}, 0, 0, "AE AW BD BI BE BW "},
        {{"*:S", "B:V"}, 0, 0, "BD BI BE BW "},
        {{"A:I", "A:E"}, 0, 0, "AE "},
        {{}, 1, 0, "AD AI AE AW "},
        {{"*:W"}, 2, 0, "BE BW "},
        {{}, 0, 2, "BD BI BE BW "},
        {{}, 1, 2, ""},
    };
    for (const auto& row : rows) {
        LineFilter filter;
        for (const char* level : row.levels) {
            ASSERT_TRUE(LineFilter::IsTagLevel(level));
            filter.AddTagLevel(level);
        }
        row.pid == 0 ? void() : filter.AddPid(row.pid);
        row.tid == 0 ? void() : filter.AddTid(row.tid);
        std::string passing;
        for (const char* tag : {"A", "B"}) {
            for (const char level : std::string("DIEW")) {
                Line line;
                line.level = level;
                line.source.tag = tag;
                line.source.pid = line.source.tid = *tag == 'A' ? 1 : 2;
                passing += filter.Passes(line, 0, {}) ? std::string(tag) + level + ' ' : "";
            }
        }
        EXPECT_EQ(passing, row.passing) << testing::PrintToString(row.levels);
    }
}

TEST(LineFormat, CsvQuotesAndDisarmsWhatNeedsIt) {
    const std::vector<std::pair<const char*, const char*>> rows{{"plain text", "plain text"},
                                                                {"", ""},
                                                                {"a,b", "\"a,b\""},
                                                                {"a\"b", "\"a\"\"b\""},
                                                                {"a\nb", "\"a\nb\""},
                                                                {"a\rb", "\"a\rb\""},
                                                                {"=1", "'=1"},
                                                                {"@1", "'@1"},
                                                                {"+1", "'+1"},
                                                                {"-1,2", "\"'-1,2\""},
                                                                {"\tx", "'\tx"},
                                                                {"a=1", "a=1"}};
    for (const auto& [text, field] : rows) {
        Line line;
        line.level = 'I';
        line.source.tag = text;
        line.message = text;
        std::string out;
        MakeCsvFormat({}, false)->Append(line, {text, "", {}}, out);
        EXPECT_EQ(out, std::string("0,I,") + field + ",0,0," + field + ",false," + field + ",\n");
    }
}

TEST(LineFormat, FieldsOfTheWallClockAndTheHostStandWhereTheyBelong) {
    TimeStyle style;
    style.wall = style.utc = style.host = true;
    Line line;
    line.time_ms = 1500;
    line.level = 'E';
    line.source.tag = "T";
    line.source.pid = 1;
    line.source.tid = 2;
    line.message = "x";
    const auto text = [&](std::unique_ptr<LineFormat> format, std::optional<int64_t> boot_time_ms) {
        std::string out;
        format->AppendHead(out);
        format->Append(line, {"f", "vega", boot_time_ms}, out);
        return out;
    };
    const std::string head = "time_ms,time,host,level,tag,pid,tid,message,coded,file,bytes\n";
    EXPECT_EQ(text(MakeCsvFormat(style, false), 1000),
              head + "1500,1970-01-01T00:00:02.500Z,vega,E,T,1,2,x,false,f,\n");
    EXPECT_EQ(text(MakeCsvFormat(style, false), {}), head + "1500,,vega,E,T,1,2,x,false,f,\n");
    EXPECT_EQ(text(MakeJsonFormat(style), 1000),
              R"({"time_ms":1500,"time":"1970-01-01T00:00:02.500Z","host":"vega","level":"E",)"
              R"("tag":"T","pid":1,"tid":2,"message":"x","coded":false,"file":"f"})"
              "\n");
}

TEST(LineFormat, SourcesAreThoseOfTheLinesOwnDump) {
    Columns columns;
    columns.Fit({"A", 2, 0, 0});
    const auto format = MakeShortFormat({}, {}, columns);
    std::string out;
    for (size_t dump = 0; dump < 2; ++dump) {
        for (int pid = 1; pid < 3; ++pid) {
            Line line;
            line.level = 'I';
            line.dump = dump;
            line.source.tag = dump == 0 ? "A" : "B";
            line.source.pid = pid;
            line.source.place = static_cast<uint32_t>(pid);
            out.clear();
            format->Append(line, {}, out);
            EXPECT_EQ(out, "0.000 I/" + std::string(line.source.tag) + " (P " +
                               std::to_string(pid) + ", T 0): \n");
        }
    }
}

}  // namespace
