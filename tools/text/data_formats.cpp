// The formats for programs.

#include <nlohmann/json.hpp>

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
        // What is not UTF-8 is replaced in the message, so its bytes are given beside it.
        if (line.kind == Line::Message::kCode || !IsUtf8(line.message)) {
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
        out += "level,tag,pid,tid,message,coded,file\n";
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
            AppendCsvField(context.host, escape_, out);
            out += ',';
        }
        out += line.level;
        out += ',';
        AppendCsvField(line.source.tag, escape_, out);
        out += ',' + std::to_string(line.source.pid) + ',' + std::to_string(line.source.tid) + ',';
        AppendCsvField(MessageText(line), escape_, out);
        out += line.kind != Line::Message::kText ? ",true," : ",false,";
        AppendCsvField(context.file, escape_, out);
        out += '\n';
    }

private:
    TimeStyle style_;
    bool escape_;
    Clock clock_;
};

}  // namespace

std::unique_ptr<LineFormat> MakeJsonFormat(TimeStyle style) {
    return std::make_unique<JsonFormat>(style);
}

std::unique_ptr<LineFormat> MakeCsvFormat(TimeStyle style, bool escape) {
    return std::make_unique<CsvFormat>(style, escape);
}

}  // namespace trelvo
