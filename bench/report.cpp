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
    std::printf("\n%-48s %-44s %-12s %s\n", "goal", "wanted", "found", "");
    for (const auto& [row, values] : rows_) {
        const size_t slash = row.rfind('/');
        const std::string folder = row.substr(0, slash + 1);
        const std::string last = row.substr(slash + 1);
        const bool is_mix = folder.find("/mix/") != std::string::npos;
        const bool is_generated = folder.find("/repetitive/") != std::string::npos ||
                                  folder.find("/mixed/") != std::string::npos;
        if (values.count("allocations/line") != 0) {
            if (!is_generated && last == "recorder") {
                Judge(row, "MB/s", folder + "zstd 3", 1, true, "zstd 3");
                Judge(row, "MB/s", folder + "zlib 6", 8, true, "zlib 6");
            }
            Judge(row, "allocations/line", "", 0.1, false, "allocations a line");
        }
        if (values.count("times without") != 0) {
            Judge(row, "times without", "", 1.03, false, "times the time without");
        }
        if (row == "encode/100000 sources/recorder") {
            Judge(row, "us/line", "encode/10 sources/recorder", 1.5, false,
                  "the time with 10 sources");
        }
        if (folder.find("history/") == 0 && last == "recorder" && !is_generated) {
            Judge(row, "bytes/line", folder + "zstd 3", is_mix ? 0.42 : 0.9, false,
                  "the memory of zstd 3");
        }
        if (is_mix && last == "recorder") {
            Judge(row, "lines kept", folder + "volatile journal", 75, true, "the volatile journal");
        }
        if (row == "history/repetitive/recorder, tables") {
            Judge(row, "bytes/line", "", 8, false, "bytes a line");
        }
        if (values.count("MiB grown at most") != 0) {
            Judge(row, "MiB grown at most", "", 11, false, "MiB with a limit of 10");
        }
        if (folder.find("snapshot/") == 0) {
            if (values.count("us locked") != 0) {
                Judge(row, "us locked", "", 200, false, "us locked");
            }
            if (values.count("ms") != 0) {
                Judge(row, "ms", "", 1, false, "ms that a line waits");
            }
            Judge(row, "messages when locked", "", 0, false, "messages when locked");
        }
        if (EndsWith(row, "100 % handed on")) {
            Judge(row, "MB/s", folder + "wc -l", 0.5, true, "wc -l");
        }
        if (row.find("capture/") == 0) {
            Judge(row, "dlogutil, times journalctl's", "", 1, false, "journalctl's processor time");
            Judge(row, "dlogutil, resident MB without journal files", "", 8, false, "MB");
        }
        if (row.find("start/1000000 rows/recorder") == 0) {
            Judge(row, "rows/s", folder + "sqlite3_step", 0.5, true, "sqlite3_step");
            Judge(row, "B/row beyond text and code", "", 24, false, "bytes a row");
        }
        if (row == "tools/decode") {
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
        return;  // left out by a filter
    }
    const double found = Measure(row, value, peer);
    char wanted[64];
    static_cast<void>(std::snprintf(wanted, sizeof wanted, "%s %g %s%s",
                                    at_least ? "at least" : "at most", goal,
                                    peer.empty() ? "" : "x ", what.c_str()));
    std::printf("%-48s %-44s %-12.2f %s\n", row.c_str(), wanted, found,
                (at_least ? found >= goal : found <= goal) ? "met" : "MISSED");
}

}  // namespace bench
