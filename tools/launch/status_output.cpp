// The three forms of a status.

#include <array>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "launch/status.h"
#include "text/clock.h"
#include "text/escape.h"

namespace trelvo {

namespace {

using Number = std::optional<int64_t>;
using Text = std::optional<std::string>;

constexpr const char* kUnknown = "unknown";

// A number of the service's text: its field, its JSON key, and its metric, if it has one.
struct Field {
    const char* name;
    const char* metric;
    const char* type;
    const char* help;
};

constexpr std::array<Field, 12> kNumbers = {{
    {"started", "trelvo_start_time_seconds", "gauge", "When the service started, since 1970."},
    {"accepted", "trelvo_lines_accepted_total", "counter", "Lines that became records."},
    {"refused", "trelvo_lines_refused_total", "counter", "Lines that could not become records."},
    {"dropped", "trelvo_lines_dropped_total", "counter", "Records that a full buffer dropped."},
    {"records", "trelvo_records", "gauge", "Records in the buffer."},
    {"record_bytes", "trelvo_record_bytes", "gauge", "Bytes of the records in the buffer."},
    {"memory_bytes", "trelvo_memory_bytes", "gauge", "Memory that the records take."},
    {"limit_bytes", "trelvo_limit_bytes", "gauge", "Limit of the buffer."},
    {"tables", "trelvo_code_tables", "gauge", "Code tables that are loaded."},
    {"dumps", "trelvo_dumps_total", "counter", "Attempts to write a dump that have ended."},
    {"pending", "trelvo_dump_pending", "gauge", "Whether a dump is asked for or being written."},
    {"suppressed", "trelvo_match_suppressed_total", "counter",
     "Matching lines that triggered no dump of their own."},
}};

// Of the collector's text.
constexpr std::array<Field, 5> kCollectorNumbers = {{
    {"time", "trelvo_collect_time_seconds", "gauge", "When dumps were last collected, since 1970."},
    {"failed", "trelvo_collect_failed", "gauge", "Whether that failed."},
    {"dumps", "trelvo_archive_dumps", "gauge", "Dumps in the archive."},
    {"bytes", "trelvo_archive_bytes", "gauge", "Bytes of the archive."},
    {"waiting", "trelvo_archive_waiting", "gauge", "Dumps that are to be handed over."},
}};

nlohmann::ordered_json Json(const Number& number) {
    return number ? nlohmann::ordered_json(*number) : nlohmann::ordered_json(nullptr);
}

nlohmann::ordered_json Json(const Text& text) {
    return text ? nlohmann::ordered_json(Escape(*text)) : nlohmann::ordered_json(nullptr);
}

std::string Shown(const Text& text) {
    return text ? Escape(*text) : kUnknown;
}

std::string Shown(const Number& number) {
    return number ? std::to_string(*number) : kUnknown;
}

std::string WallTime(const Number& seconds) {
    constexpr int64_t kLatest = 253402300799;  // the end of the year 9999
    if (!seconds || *seconds < 0 || *seconds > kLatest) {
        return kUnknown;
    }
    std::string text;
    Clock(false).Append(*seconds * 1000, "%Y-%m-%d %H:%M:%S", false, text);
    return text.substr(0, text.rfind('.'));
}

std::string Seconds(const Number& ms) {
    std::string text;
    if (ms) {
        AppendSeconds(*ms, text);
    }
    return ms ? text : kUnknown;
}

std::string CaptureText(const ServiceStatus& status) {
    const auto alive = status.capture.Number("alive");
    std::string text = !alive ? kUnknown : *alive == 1 ? "alive" : "dead";
    if (const auto reason = status.capture.Text("reason"); reason && !reason->empty()) {
        text += ": " + Escape(*reason);
    }
    if (const auto restarts = status.capture.Number("restarts"); restarts.value_or(0) != 0) {
        text += ", restarted " + Shown(restarts) + " times";
    }
    for (const auto& [cause, lines] : status.capture.NumbersAfter("lost_")) {
        text += ", lost " + std::to_string(lines) + " by " + Escape(cause);
    }
    return text;
}

std::string LastDumpText(const Fields& service) {
    if (service.Number("dumps") == 0) {
        return "none";
    }
    if (!service.Number("last_dump_time")) {
        return kUnknown;
    }
    return WallTime(service.Number("last_dump_time")) + " by " +
           Shown(service.Text("last_dump_trigger")) + ", " + Shown(service.Text("last_dump_path")) +
           ": " + Shown(service.Text("last_dump_result")) +
           (service.Text("last_dump_result") == "written" &&
                    service.Number("last_dump_current") == 0
                ? ", without the newest lines"
                : "");
}

std::string UploadText(const Number& upload) {
    if (!upload) {
        return "no key: no dump is written by itself";
    }
    return std::to_string(*upload) + (*upload == 0 ? ": dumps are written by themselves"
                                                   : ": dumps wait to be fetched, no other one is "
                                                     "written by itself");
}

std::string CollectorText(const Fields& collector) {
    if (!collector.Number("time")) {
        return kUnknown;
    }
    const auto number = [&](const char* name) { return Shown(collector.Number(name)); };
    return WallTime(collector.Number("time")) + ": " + Shown(collector.Text("result")) +
           "; archive of " + number("dumps") + " dumps, " + number("bytes") + " bytes, " +
           number("waiting") + " to be handed over";
}

// The value of a label. Escape() has left nothing that could end the line.
std::string Label(const std::string& text) {
    std::string label;
    for (const char c : Escape(text)) {
        label += c == '\\' || c == '"' ? std::string("\\") + c : std::string(1, c);
    }
    return "\"" + label + "\"";
}

class Metrics {
public:
    void Head(const char* name, const char* type, const char* help) {
        text_ +=
            std::string("# HELP ") + name + " " + help + "\n# TYPE " + name + " " + type + "\n";
    }
    void Sample(const char* name, const std::string& labels, const std::string& value) {
        text_ += name + (labels.empty() ? "" : "{" + labels + "}") + " " + value + "\n";
    }
    void One(const char* name, const char* type, const char* help, const std::string& value) {
        Head(name, type, help);
        Sample(name, "", value);
    }
    std::string Take() { return std::move(text_); }

private:
    std::string text_;
};

}  // namespace

std::string StatusJson(const ServiceStatus& status) {
    const Fields& service = status.service;
    nlohmann::ordered_json json;
    json["running"] = status.pid.has_value();
    json["recording"] = status.IsRecording();
    json["pid"] = Json(status.pid ? Number(*status.pid) : std::nullopt);
    json["version"] = Json(service.Text("version"));
    for (const Field& field : kNumbers) {
        json[field.name] = Json(service.Number(field.name));
    }
    json["count"] = Json(service.Text("count"));
    json["oldest_ms"] = Json(service.Number("oldest_ms"));
    json["newest_ms"] = Json(service.Number("newest_ms"));
    json["newest_age_ms"] = Json(status.NewestAgeMs());
    json["policy_version"] = Json(service.Text("policy_version"));
    const auto current = service.Number("last_dump_current");
    json["last_dump"] = {{"time", Json(service.Number("last_dump_time"))},
                         {"trigger", Json(service.Text("last_dump_trigger"))},
                         {"path", Json(service.Text("last_dump_path"))},
                         {"result", Json(service.Text("last_dump_result"))},
                         {"current", current ? nlohmann::ordered_json(*current != 0) : nullptr}};
    const auto alive = status.capture.Number("alive");
    auto lost = nlohmann::ordered_json::object();
    for (const auto& [cause, lines] : status.capture.NumbersAfter("lost_")) {
        lost[Escape(cause)] = lines;
    }
    json["capture"] = {{"alive", alive ? nlohmann::ordered_json(*alive == 1) : nullptr},
                       {"reason", Json(status.capture.Text("reason"))},
                       {"restarts", Json(status.capture.Number("restarts"))},
                       {"lost", lost}};
    json["upload_key"] = Json(status.upload);
    json["collector"]["result"] = Json(status.collector.Text("result"));
    for (const Field& field : kCollectorNumbers) {
        json["collector"][field.name] = Json(status.collector.Number(field.name));
    }
    return json.dump() + "\n";
}

std::string StatusMetrics(const ServiceStatus& status) {
    const Fields& service = status.service;
    const auto flag = [](bool value) { return value ? "1" : "0"; };
    Metrics metrics;
    metrics.One("trelvo_up", "gauge", "Whether the service runs.", flag(status.pid.has_value()));
    metrics.One("trelvo_recording", "gauge", "Whether lines that are logged reach the recorder.",
                flag(status.IsRecording()));
    if (status.pid) {
        metrics.Head("trelvo_info", "gauge", "Versions of the service and of its code tables.");
        metrics.Sample("trelvo_info",
                       "version=" + Label(service.Text("version").value_or("")) +
                           ",policy_version=" + Label(service.Text("policy_version").value_or("")),
                       "1");
    }
    for (const Field& field : kNumbers) {
        if (const auto value = service.Number(field.name)) {
            metrics.One(field.metric, field.type, field.help, std::to_string(*value));
        }
    }
    if (const auto age = status.NewestAgeMs()) {
        metrics.One("trelvo_newest_line_age_seconds", "gauge", "Since the newest line was taken.",
                    Seconds(age));
    }
    if (const auto time = service.Number("last_dump_time")) {
        metrics.Head("trelvo_last_dump_time_seconds", "gauge",
                     "When the last dump ended, since 1970.");
        metrics.Sample("trelvo_last_dump_time_seconds",
                       "trigger=" + Label(service.Text("last_dump_trigger").value_or("")) +
                           ",result=" + Label(service.Text("last_dump_result").value_or("")),
                       std::to_string(*time));
    }
    if (const auto restarts = status.capture.Number("restarts")) {
        metrics.One("trelvo_capture_restarts_total", "counter", "Restarts of the capture.",
                    std::to_string(*restarts));
    }
    if (const auto lost = status.capture.NumbersAfter("lost_"); !lost.empty()) {
        metrics.Head("trelvo_capture_lost_total", "counter",
                     "What the capture has lost, by cause.");
        for (const auto& [cause, lines] : lost) {
            metrics.Sample("trelvo_capture_lost_total", "cause=" + Label(cause),
                           std::to_string(lines));
        }
    }
    if (status.upload) {
        metrics.One("trelvo_upload_pending", "gauge", "Whether dumps wait to be fetched.",
                    flag(*status.upload != 0));
    }
    for (const Field& field : kCollectorNumbers) {
        if (const auto value = status.collector.Number(field.name)) {
            metrics.One(field.metric, field.type, field.help, std::to_string(*value));
        }
    }
    return metrics.Take();
}

std::string StatusText(const ServiceStatus& status) {
    const std::string collector = "collector       " + CollectorText(status.collector) + "\n";
    if (!status.pid) {
        // The collector works on what a service has left.
        return "state           not running\n" +
               (status.collector.Number("time") ? collector : std::string());
    }
    const Fields& service = status.service;
    const auto number = [&](const char* name) { return Shown(service.Number(name)); };
    const auto age = status.NewestAgeMs();
    return "state           " + std::string(status.IsRecording() ? "" : "not ") + "recording\n" +
           "service         process " + std::to_string(*status.pid) + ", version " +
           Shown(service.Text("version")) + ", since " + WallTime(service.Number("started")) +
           "\ncapture         " + CaptureText(status) + "\nnewest line     " +
           (age ? Seconds(age) + " s ago" : kUnknown) + "\nlines           " + number("accepted") +
           " accepted, " + number("refused") + " refused, " + number("dropped") +
           " dropped\nbuffer          " + number("records") + " records of " +
           number("record_bytes") + " bytes in " + number("memory_bytes") +
           " bytes of memory; limit " + number("limit_bytes") + " bytes of " +
           Shown(service.Text("count")) + "\ntimes           " +
           Seconds(service.Number("oldest_ms")) + " to " + Seconds(service.Number("newest_ms")) +
           " s\npolicy          version '" + Shown(service.Text("policy_version")) + "', " +
           number("tables") + " code tables\ndumps           " + number("dumps") + " ended, " +
           number("pending") + " pending, " + number("suppressed") +
           " matches suppressed\nlast dump       " + LastDumpText(service) + "\nupload key      " +
           UploadText(status.upload) + "\n" + collector;
}

}  // namespace trelvo
