// How lines are chosen and written: clock, times as people give them, filter and formats.

#include <gmock/gmock.h>
#include <pty.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <ctime>

#include "commands/progress.h"
#include "platform/handles.h"
#include "text/clock.h"
#include "text/line_filter.h"
#include "text/line_format.h"
#include "text/time_point.h"
#include "text/units.h"

using namespace trelvo;

namespace {

using testing::HasSubstr;
using Kind = TimePoint::Kind;

// The machine's time zone, as POSIX writes it: hours and minutes west of Greenwich.
void SetZone(const char* zone) {
    setenv("TZ", zone, 1);
    tzset();
}

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
        SetZone(row.zone);
        for (const bool utc : {false, true}) {
            std::string text;
            Clock(utc).Append(row.ms, "%Y-%m-%dT%H:%M:%S", true, text);
            EXPECT_EQ(text, utc ? row.utc : row.local);
        }
    }
    // One clock, for times that come and go, and for the summer.
    SetZone("XXX0YYY,J100/0,J200/0");
    Clock clock(false);
    std::string text;
    for (const int64_t ms : {int64_t{999}, int64_t{1000}, int64_t{1001}, int64_t{8640000000}}) {
        clock.Append(ms, "%H:%M:%S", true, text += ' ');
    }
    for (const int64_t ms : {int64_t{-1}, int64_t{0}, int64_t{12005}, int64_t{3000000000}}) {
        AppendSeconds(ms, text += ' ');
    }
    EXPECT_EQ(text,
              " 00:00:00.999+00:00 00:00:01.000+00:00 00:00:01.001+00:00 01:00:00.000+01:00 -0.001 "
              "0.000 12.005 3000000.000");
}

TEST(TimePoint, IsReadAsPeopleWriteIt) {
    constexpr int64_t kDayMs = 86400000;
    SetZone("XXX-5:30");
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
        {"-1d", false, Kind::kFromEnd, -kDayMs},
        {"3 hours", false, Kind::kSinceBoot, 10800000},
        {"2 days", false, Kind::kSinceBoot, 2 * kDayMs},
        {"4 seconds", false, Kind::kSinceBoot, 4000},
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
    EXPECT_EQ(ParseTimePoint("yesterday", true).ms, ParseTimePoint("today", true).ms - kDayMs);
    for (const char* zone : {"XXX-12", "XXX+12"}) {
        SetZone(zone);
        EXPECT_EQ(ParseTimePoint("22:30Z", false).ms, ParseTimePoint("today", true).ms + 81000000)
            << "of the day there";
    }
    for (const char* wrong :
         {"", "-", "5x", "1e3", "1970-13-01", "24:00", "-5 min ago", "1e99", "900000000000d"}) {
        EXPECT_THROW((void)ParseTimePoint(wrong, true), FilterError) << wrong;
    }
}

// By boot and milliseconds; the second boot was up to 20,000 ms, which is 120,000 since 1970.
TEST(LineFilter, SpansCountBackFromTheEndOfTheLastBoot) {
    const TimePoint end{-10000, Kind::kFromEnd};
    const TimePoint minute{-60000, Kind::kFromEnd};
    const TimePoint boot{10000, Kind::kSinceBoot};
    const TimePoint later{15000, Kind::kSinceBoot};
    const TimePoint wall{65000, Kind::kWall};
    const TimePoint until{110000, Kind::kWall};
    struct {
        const char* situation;
        std::optional<TimePoint> since;
        std::optional<TimePoint> until;
        bool wall;
        const char* passing;
    } const rows[] = {
        {"from the end", end, {}, false, "1:10000 1:20000 "},
        {"up to it", {}, end, false, "0:0 0:15000 1:100 1:10000 "},
        {"since boot, in each", boot, later, false, "0:15000 1:10000 "},
        {"from the end by the clock", minute, {}, true, "0:15000 1:100 1:10000 1:20000 "},
        {"by the clock", wall, until, true, "0:15000 1:100 1:10000 "},
    };
    for (const auto& row : rows) {
        LineFilter filter;
        filter.SetSpan(row.since, row.until);
        filter.SetEnd(1, 20000);
        if (row.wall) {
            filter.SetWallEnd(120000);
        }
        std::string passing;
        for (const auto& [place, ms] : std::vector<std::pair<size_t, int64_t>>{
                 {0, 0}, {0, 15000}, {1, 100}, {1, 10000}, {1, 20000}}) {
            Line line;
            line.time_ms = ms;
            const std::optional<int64_t> boot_time_ms =
                row.wall && ms > 0 ? std::optional<int64_t>(place == 0 ? 50000 : 100000)
                                   : std::nullopt;
            if (filter.Passes(line, place, boot_time_ms)) {
                passing += std::to_string(place) + ":" + std::to_string(ms) + " ";
            }
        }
        EXPECT_EQ(passing, row.passing) << row.situation;
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
        {{"A:S", "*:W"}, 0, 0, "BE BW "},
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
    const auto text = [&](std::unique_ptr<LineFormat> format, std::optional<int64_t> boot_time_ms,
                          bool latest = false) {
        std::string out;
        format->AppendHead(out);
        format->Append(line, {"f", "vega", boot_time_ms, "b0", 0, Break::kNone, latest}, out);
        return out;
    };
    const std::string head = "time_ms,time,host,level,tag,pid,tid,message,coded,file,bytes\n";
    EXPECT_EQ(text(MakeCsvFormat(style, false), 1000),
              head + "1500,1970-01-01T00:00:02.500Z,vega,E,T,1,2,x,false,f,\n");
    EXPECT_EQ(text(MakeCsvFormat(style, false), {}), head + "1500,,vega,E,T,1,2,x,false,f,\n");
    EXPECT_EQ(
        text(MakeJsonFormat(style), 1000, true),
        R"({"time_ms":1500,"time":"1970-01-01T00:00:02.500Z","latest":true,"host":"vega","level":"E",)"
        R"("tag":"T","pid":1,"tid":2,"message":"x","coded":false,"file":"f"})"
        "\n");
    EXPECT_EQ(text(MakeExportFormat(), -9000, true),
              "__REALTIME_TIMESTAMP=1\n__MONOTONIC_TIMESTAMP=1500000\n_BOOT_ID=b0\n_HOSTNAME=vega\n"
              "PRIORITY=3\nSYSLOG_IDENTIFIER=T\n_PID=1\nTID=2\nLATEST=1\nMESSAGE=x\n\n");
    EXPECT_THAT(text(MakeExportFormat(), 100000000000000),
                HasSubstr("__REALTIME_TIMESTAMP=36028797018963000\n"))
        << "the latest that a journal takes";
    for (const auto& [level, priority] : {std::pair('D', "7"), {'I', "6"}, {'W', "4"}}) {
        line.level = level;
        EXPECT_THAT(text(MakeExportFormat(), 0), HasSubstr(std::string("PRIORITY=") + priority));
    }
}

TEST(LineFormat, SourcesAreThoseOfTheLinesOwnDumpInColumns) {
    Columns columns;
    columns.Fit({"a tag that is wider than its column", 2, 0, 0});
    columns.latest = true;
    const auto format = MakeShortFormat({}, {}, columns);
    std::string out;
    // The last one's sources are too many to be kept.
    for (const size_t dump : {0U, 1U, 2U}) {
        for (int pid = 1; pid < 3; ++pid) {
            Line line;
            line.level = 'I';
            line.dump = dump;
            line.source.tag = std::string_view("ABC").substr(dump, 1);
            line.source.pid = pid;
            line.source.place = static_cast<uint32_t>(pid + (dump < 2 ? 0 : 20000));
            out.clear();
            format->Append(line, {}, out);
            EXPECT_EQ(out, " 0.000 I/" + std::string(line.source.tag) + std::string(23, ' ') +
                               " (P " + std::to_string(pid) + ", T 0): \n");
        }
    }
}

TEST(Units, ChangeWhereTheNextOneIsReached) {
    std::string text;
    for (const uint64_t bytes : {1023U, 1024U, 1048575U, 1048576U, 1610612736U}) {
        text += SizeText(bytes) + ", ";
    }
    for (const int64_t ms : {1, 59999, 60000, 3599999, 3600000, 86399999, 90000000}) {
        text += SpanText(ms) + ", ";
    }
    EXPECT_EQ(text,
              "1023 B, 1.0 KiB, 1023.9 KiB, 1.0 MiB, 1.5 GiB, 0.001 s, 59.999 s, 1 min 0 s, "
              "59 min 59 s, 1 h 0 min, 23 h 59 min, 1 d 1 h, ");
}

TEST(Progress, IsABarOnATerminalThatGoesAway) {
    int master = -1;
    int slave = -1;
    ASSERT_EQ(openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
    const port::UniqueFd screen(master);
    port::UniqueFd terminal(slave);
    const port::UniqueFd before(dup(STDERR_FILENO));
    dup2(slave, STDERR_FILENO);
    {
        Progress progress(uint64_t{200} << 40U, false, {});
        progress.Advance(uint64_t{50} << 40U);
    }
    Progress(200, false, {}).Advance(300);
    dup2(before.Get(), STDERR_FILENO);
    terminal = {};  // so that reading ends
    std::string shown;
    std::array<char, 200> piece{};
    for (ssize_t size = 0; (size = read(master, piece.data(), piece.size())) > 0;) {
        shown.append(piece.data(), static_cast<size_t>(size));
    }
    EXPECT_EQ(shown,
              "\r[##########..............................]  25 %\r\x1B[K"
              "\r[########################################] 100 %\r\x1B[K");
}

}  // namespace
