#include "report.h"

#include <cstdio>

namespace bench {

namespace {

constexpr const char* kTime = "ms";

// Three digits that matter, with the unit behind.
std::string Show(double value, const std::string& unit) {
    const char* scale = "";
    if (value >= 1e6) {
        value /= 1e6;
        scale = " M";
    } else if (value >= 1e4) {
        value /= 1e3;
        scale = " k";
    }
    char text[32];
    const int decimals = value >= 100 ? 0 : value >= 10 ? 1 : 2;
    static_cast<void>(std::snprintf(text, sizeof text, "%.*f%s", decimals, value, scale));
    return std::string(text) + " " + unit;
}

// Counters come in the order of their names; "1. " in front puts them in another.
std::string Unit(const std::string& counter) {
    return counter.size() > 3 && counter[1] == '.' ? counter.substr(3) : counter;
}

bool EndsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

}  // namespace

bool TableReporter::ReportContext(const Context& /*context*/) {
    std::printf("%-58s %s\n", "what", "result (median of 5 where it is timed)");
    return true;
}

void TableReporter::ReportRuns(const std::vector<Run>& runs) {
    for (const Run& run : runs) {
        const std::string& name = run.run_name.function_name;
        if (run.error_occurred) {
            std::printf("%-58s FAILED: %s\n", name.c_str(), run.error_message.c_str());
            is_complete_ = false;
            continue;
        }
        if (run.run_type == Run::RT_Aggregate && run.aggregate_name != "median") {
            continue;
        }
        Values& values = rows_[name];
        std::string text;
        if (run.run_type == Run::RT_Aggregate) {
            const bool is_real = run.run_name.time_type.find("time") != std::string::npos;
            values[kTime] = is_real ? run.GetAdjustedRealTime() : run.GetAdjustedCPUTime();
            text = Show(values[kTime], kTime);
        }
        for (const auto& [counter, value] : run.counters) {
            values[Unit(counter)] = value.value;
            text += (text.empty() ? "" : ", ") + Show(value.value, Unit(counter));
        }
        std::printf("%-58s %s\n", name.c_str(), text.c_str());
        std::fflush(stdout);
    }
}

void TableReporter::Finalize() {
    std::printf("\n%-58s %-32s %-12s %s\n", "goal", "wanted", "found", "");
    for (const auto& [row, values] : rows_) {
        const std::string folder = row.substr(0, row.rfind('/') + 1);
        if (row.find("encode/") == 0 && values.count("allocations/line") != 0) {
            Judge(row, "MB/s", folder + "zstd 3", 1, true, "zstd 3");
            Judge(row, "MB/s", folder + "zlib 6", 8, true, "zlib 6");
            Judge(row, "allocations/line", "", 3, false, "allocations a line");
        }
        if (row == "encode/100000 sources/recorder") {
            Judge(row, "ms", "encode/10 sources/recorder", 2, false, "the time with 10 sources");
        }
        if (row == "history/repetitive/recorder, tables") {
            Judge(row, "lines kept", folder + "zstd 3", 1, true, "the lines of zstd 3");
        }
        if (row.find("snapshot/10 MiB/stall") == 0 || row == "snapshot/10 MiB/lock, kept") {
            Judge(row, "ms", folder + "plain copy", 4, false, "a plain copy");
        }
        if (EndsWith(row, "100 % handed on")) {
            Judge(row, "MB/s", folder + "wc -l", 0.5, true, "wc -l");
        }
        if (row.find("start/1000000 rows/recorder") == 0) {
            Judge(row, "rows/s", folder + "sqlite3_step", 0.5, true, "sqlite3_step");
            Judge(row, "B/row beyond text and code", "", 24, false, "bytes a row");
        }
        if (row.find("tools/") == 0 && row.find("decode") != std::string::npos) {
            Judge(row, "lines/s", "tools/zstdcat | grep", 1, true, "zstdcat | grep");
        }
    }
}

double TableReporter::Measure(const std::string& row, const std::string& value,
                              const std::string& peer) const {
    const double own = rows_.at(row).at(value);
    return peer.empty() ? own : own / rows_.at(peer).at(value);
}

void TableReporter::Judge(const std::string& row, const std::string& value, const std::string& peer,
                          double goal, bool at_least, const std::string& what) const {
    if (!peer.empty() && rows_.count(peer) == 0) {
        return;
    }
    const double found = Measure(row, value, peer);
    char wanted[64];
    static_cast<void>(std::snprintf(wanted, sizeof wanted, "%s %g %s%s",
                                    at_least ? "at least" : "at most", goal,
                                    peer.empty() ? "" : "x ", what.c_str()));
    std::printf("%-58s %-32s %-12.2f %s\n", row.c_str(), wanted, found,
                (at_least ? found >= goal : found <= goal) ? "met" : "MISSED");
}

}  // namespace bench
