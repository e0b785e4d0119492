// The formats for programs.

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>

#include "text/clock.h"
#include "text/escape.h"
#include "text/line_format.h"

namespace trelvo {

namespace {

constexpr const char* kIsoDateAndTime = "%Y-%m-%dT%H:%M:%S";

using Json = nlohmann::ordered_json;

std::string MessageText(const Line& line) {
    return line.kind == Line::Message::kCode ? "<code " + Hex(line.message) + '>'
                                             : std::string(line.message);
}

// Readers end a text at a NUL, or refuse what is not UTF-8; then its bytes are given beside it.
bool NeedsBytes(const Line& line) {
    return line.kind == Line::Message::kCode || line.message.find('\0') != std::string_view::npos ||
           !IsUtf8(line.message);
}

// With U+FFFD for each byte that is not UTF-8, and for NUL.
std::string Readable(std::string_view text) {
    if (text.find('\0') == std::string_view::npos && IsUtf8(text)) {
        return std::string(text);
    }
    std::string json = Json(text).dump(-1, ' ', false, Json::error_handler_t::replace);
    std::string readable = Json::parse(json).get<std::string>();
    for (size_t at = 0; (at = readable.find('\0', at)) != std::string::npos;) {
        readable.replace(at, 1, "\xEF\xBF\xBD");
    }
    return readable;
}

class JsonFormat : public LineFormat {
public:
    explicit JsonFormat(TimeStyle style) : style_(style), clock_(style.utc) {}

    void Append(const Line& line, const LineContext& context, std::string& out) override {
        Json object;
        object["time_ms"] = line.time_ms;
        if (style_.wall && context.boot_time_ms) {
            std::string time;
            clock_.Append(*context.boot_time_ms + line.time_ms, kIsoDateAndTime, true, time);
            object["time"] = time;
        }
        if (context.latest) {
            object["latest"] = true;
        }
        if (style_.host) {
            object["host"] = context.host;
        }
        object["level"] = std::string(1, line.level);
        object["tag"] = line.source.tag;
        object["pid"] = line.source.pid;
        object["tid"] = line.source.tid;
        object["message"] = MessageText(line);
        object["coded"] = line.kind != Line::Message::kText;
        object["file"] = context.file;
        if (NeedsBytes(line)) {
            object["bytes"] = Hex(line.message);
        }
        AppendJsonEscaped(object.dump(-1, ' ', false, Json::error_handler_t::replace), out);
        out += '\n';
    }

private:
    TimeStyle style_;
    Clock clock_;
};

// Quoted where a comma, a quote or a line end would be taken for the format's own. A spreadsheet
// runs a field that begins like a formula, unless an apostrophe says that it is text.
void AppendCsvField(std::string_view text, bool escape, std::string& out) {
    const std::string escaped = escape ? Escape(text) : "";
    const std::string prefixed =
        !text.empty() && std::string_view("=+-@\t\r").find(text.front()) != std::string_view::npos
            ? '\'' + std::string(escape ? escaped : text)
            : "";
    text = !prefixed.empty() ? prefixed : escape ? escaped : text;
    if (text.find_first_of(",\"\r\n") == std::string_view::npos) {
        out += text;
        return;
    }
    out += '"';
    for (const char c : text) {
        out += c;
        if (c == '"') {
            out += c;
        }
    }
    out += '"';
}

class CsvFormat : public LineFormat {
public:
    CsvFormat(TimeStyle style, bool escape) : style_(style), escape_(escape), clock_(style.utc) {}

    void AppendHead(std::string& out) const override {
        out += style_.wall ? "time_ms,time," : "time_ms,";
        out += style_.host ? "host," : "";
        out += "level,tag,pid,tid,message,coded,file,bytes\n";
    }

    void Append(const Line& line, const LineContext& context, std::string& out) override {
        out += std::to_string(line.time_ms) + ',';
        if (style_.wall) {
            if (context.boot_time_ms) {
                clock_.Append(*context.boot_time_ms + line.time_ms, kIsoDateAndTime, true, out);
            }
            out += ',';
        }
        if (style_.host) {
            AppendCsvField(Readable(context.host), escape_, out);
            out += ',';
        }
        out += line.level;
        out += ',';
        AppendCsvField(Readable(line.source.tag), escape_, out);
        out += ',' + std::to_string(line.source.pid) + ',' + std::to_string(line.source.tid) + ',';
        AppendCsvField(Readable(MessageText(line)), escape_, out);
        out += line.kind != Line::Message::kText ? ",true," : ",false,";
        AppendCsvField(Readable(context.file), escape_, out);
        out += ',' + (NeedsBytes(line) ? Hex(line.message) : "");
        out += '\n';
    }

private:
    TimeStyle style_;
    bool escape_;
    Clock clock_;
};

// Of syslog; the journal's priorities are gathered into the levels of a dump likewise.
char Priority(char level) {
    switch (level) {
        case 'F':
            return '2';
        case 'E':
            return '3';
        case 'W':
            return '4';
        case 'I':
            return '6';
        default:
            return '7';
    }
}

void AppendExportField(std::string_view name, std::string_view value, std::string& out) {
    out += name;
    if (IsText(value)) {
        out += '=';
        out += value;
    } else {
        out += '\n';
        for (int shift = 0; shift < 64; shift += 8) {
            out += static_cast<char>(uint64_t{value.size()} >> shift & 0xFF);
        }
        out += value;
    }
    out += '\n';
}

class ExportFormat : public LineFormat {
public:
    void Append(const Line& line, const LineContext& context, std::string& out) override {
        // In microseconds. At a time out of these bounds a journal's reader stops for good.
        const auto time = [](int64_t ms) {
            constexpr int64_t kMost = (int64_t{1} << 55) - 1;
            return std::to_string(
                std::max<int64_t>(1, std::clamp<int64_t>(ms, 0, kMost / 1000) * 1000));
        };
        out += "__REALTIME_TIMESTAMP=" + time(context.boot_time_ms.value_or(0) + line.time_ms) +
               "\n__MONOTONIC_TIMESTAMP=" + time(line.time_ms) + '\n';
        AppendExportField("_BOOT_ID", context.boot, out);
        if (!context.host.empty()) {
            AppendExportField("_HOSTNAME", context.host, out);
        }
        out += "PRIORITY=";
        out += Priority(line.level);
        out += '\n';
        AppendExportField("SYSLOG_IDENTIFIER", line.source.tag, out);
        out += "_PID=" + std::to_string(line.source.pid) +
               "\nTID=" + std::to_string(line.source.tid) + '\n';
        if (context.latest) {
            out += "LATEST=1\n";
        }
        AppendExportField("MESSAGE", MessageText(line), out);
        out += '\n';
    }
};

}  // namespace

std::unique_ptr<LineFormat> MakeExportFormat() {
    return std::make_unique<ExportFormat>();
}

std::unique_ptr<LineFormat> MakeJsonFormat(TimeStyle style) {
    return std::make_unique<JsonFormat>(style);
}

std::unique_ptr<LineFormat> MakeCsvFormat(TimeStyle style, bool escape) {
    return std::make_unique<CsvFormat>(style, escape);
}

}  // namespace trelvo
