// The formats for people and for viewers of text.

#include <algorithm>
#include <array>
#include <charconv>
#include <vector>

#include "text/clock.h"
#include "text/escape.h"
#include "text/line_format.h"

namespace trelvo {

namespace {

constexpr size_t kThreadtimeTagWidth = 8;
constexpr size_t kIdWidth = 5;
constexpr const char* kDateAndTime = "%Y-%m-%d %H:%M:%S";

void AppendRight(std::string_view text, size_t width, std::string& out) {
    out.append(width - std::min(width, text.size()), ' ');
    out += text;
}

void AppendLeft(std::string_view text, size_t width, std::string& out) {
    out += text;
    out.append(width - std::min(width, text.size()), ' ');
}

void AppendId(int32_t id, std::string& out) {
    std::array<char, 12> digits;
    const auto [end, error] = std::to_chars(digits.data(), digits.data() + digits.size(), id);
    static_cast<void>(error);  // the largest number fits
    AppendRight({digits.data(), static_cast<size_t>(end - digits.data())}, kIdWidth, out);
}

void AppendMessage(const Line& line, std::string& out) {
    if (line.kind == Line::Message::kCode) {
        out += "<code " + Hex(line.message) + '>';
    } else {
        AppendEscaped(line.message, out);
    }
}

const char* Color(char level) {
    switch (level) {
        case 'F':
            return "\x1B[1;31m";
        case 'E':
            return "\x1B[31m";
        case 'W':
            return "\x1B[33m";
        case 'D':
            return "\x1B[2m";
        default:
            return "";
    }
}

// Keeps the text for each source of the dump at hand: most lines differ in time and message only.
class SourceTexts {
public:
    template <typename Make>
    const std::string& Get(const Line& line, const Make& make) {
        if (line.dump != dump_ || bytes_ > kMostBytes) {
            dump_ = line.dump;
            texts_.clear();
            bytes_ = 0;
        }
        if (line.source.place >= kMostTexts) {
            spare_.clear();
            make(line.source, spare_);
            return spare_;
        }
        if (line.source.place >= texts_.size()) {
            texts_.resize(size_t{line.source.place} + 1);
        }
        std::string& text = texts_[line.source.place];
        if (text.empty()) {
            make(line.source, text);
            bytes_ += text.size();
        }
        return text;
    }

private:
    static constexpr size_t kMostTexts = 16384;
    static constexpr size_t kMostBytes = size_t{2} << 20;

    size_t dump_ = 0;
    size_t bytes_ = 0;  // of all texts
    std::string spare_;
    std::vector<std::string> texts_;  // by place; empty: not made yet
};

class ShortFormat : public LineFormat {
public:
    ShortFormat(TimeStyle style, Layout layout, const Columns& columns)
        : style_(style), layout_(layout), columns_(columns), clock_(style.utc) {}

    [[nodiscard]] bool TakesMarkers() const override { return true; }

    void Append(const Line& line, const LineContext& context, std::string& out) override {
        const std::string_view color = layout_.color ? Color(line.level) : "";
        const std::string_view end = color.empty() ? "\n" : "\x1B[0m\n";
        out += color;
        const size_t start = out.size();
        if (context.latest) {
            out += "≤";
        } else if (columns_.latest) {
            out += ' ';
        }
        if (style_.wall && context.boot_time_ms) {
            clock_.Append(*context.boot_time_ms + line.time_ms, kDateAndTime, style_.utc, out);
        } else {
            time_.clear();
            AppendSeconds(line.time_ms, time_);
            AppendRight(time_, columns_.time, out);
        }
        if (style_.host) {
            out += ' ';
            AppendEscaped(context.host, out);
        }
        out += ' ';
        out += line.level;
        out += sources_.Get(
            line, [this](const Source& source, std::string& text) { AppendSource(source, text); });
        if (!layout_.several) {
            AppendMessage(line, out);
        } else {
            AppendLines(line, DisplayWidth(std::string_view(out).substr(start)), color, end, out);
        }
        out += end;
    }

private:
    // In a terminal that leaves fewer columns for messages, its own way to go on serves better.
    static constexpr size_t kLeastWidth = 20;

    // What follows the colon and a blank is the message, whatever it begins with.
    void AppendSource(const Source& source, std::string& text) const {
        static constexpr std::string_view kBeforeTid = ", T ";
        const std::string tag = Escape(source.tag);
        std::string ids = std::to_string(source.pid);
        size_t width = columns_.pid;
        if (columns_.tid > 0) {
            width += kBeforeTid.size() + columns_.tid;
        }
        if (source.tid != source.pid) {
            ids += kBeforeTid;
            AppendRight(std::to_string(source.tid), columns_.tid, ids);
        }
        text += '/' + tag;
        text.append(columns_.tag - std::min(columns_.tag, DisplayWidth(tag)), ' ');
        text.append(width - std::min(width, ids.size()), ' ');
        text += " (P " + ids + "): ";
    }

    // The message of the line, escaped, in as many lines as it takes; those behind the first begin
    // at the column `indent`.
    void AppendLines(const Line& line, size_t indent, std::string_view color, std::string_view end,
                     std::string& out) const {
        const size_t width = layout_.width >= indent + kLeastWidth ? layout_.width - indent : 0;
        const auto go_on = [&] {
            out += end;
            out += color;
            out.append(indent, ' ');
        };
        std::string_view rest = line.message;
        const bool is_code = line.kind == Line::Message::kCode;
        for (bool first = true; first || !rest.empty(); first = false) {
            const size_t feed = is_code ? rest.size() : std::min(rest.find('\n'), rest.size());
            std::string text;
            if (is_code) {
                AppendMessage(line, text);
            } else {
                AppendEscaped(rest.substr(0, feed), text);
            }
            rest.remove_prefix(std::min(feed + 1, rest.size()));
            if (!first) {
                go_on();
            }
            std::string_view piece = text;
            for (size_t bytes = 0;
                 width > 0 && (bytes = BytesWithin(piece, width)) < piece.size();) {
                out += piece.substr(0, bytes);
                piece.remove_prefix(bytes);
                go_on();
            }
            out += piece;
        }
    }

    TimeStyle style_;
    Layout layout_;
    const Columns& columns_;
    Clock clock_;
    SourceTexts sources_;
    std::string time_;
};

class ThreadtimeFormat : public LineFormat {
public:
    explicit ThreadtimeFormat(TimeStyle style) : style_(style), clock_(style.utc) {}

    [[nodiscard]] bool TakesMarkers() const override { return true; }

    void Append(const Line& line, const LineContext& context, std::string& out) override {
        (context.boot_time_ms ? clock_ : since_boot_)
            .Append(context.boot_time_ms.value_or(0) + line.time_ms, "%m-%d %H:%M:%S", false, out);
        out += ' ';
        AppendId(line.source.pid, out);
        out += ' ';
        AppendId(line.source.tid, out);
        out += ' ';
        out += line.level;
        out += sources_.Get(line, [](const Source& source, std::string& text) {
            text += ' ';
            AppendLeft(Escape(source.tag), kThreadtimeTagWidth, text);
            text += ": ";
        });
        AppendMessage(line, out);
        out += '\n';
    }

private:
    TimeStyle style_;
    Clock clock_;
    Clock since_boot_{true};
    SourceTexts sources_;
};

class RawFormat : public LineFormat {
public:
    explicit RawFormat(bool escape) : escape_(escape) {}

    void Append(const Line& line, const LineContext& /*context*/, std::string& out) override {
        if (escape_ || line.kind == Line::Message::kCode) {
            AppendMessage(line, out);
        } else {
            out += line.message;
        }
        out += '\n';
    }

private:
    bool escape_;
};

}  // namespace

std::unique_ptr<LineFormat> MakeShortFormat(TimeStyle style, Layout layout,
                                            const Columns& columns) {
    return std::make_unique<ShortFormat>(style, layout, columns);
}

std::unique_ptr<LineFormat> MakeThreadtimeFormat(TimeStyle style) {
    return std::make_unique<ThreadtimeFormat>(style);
}

std::unique_ptr<LineFormat> MakeRawFormat(bool escape) {
    return std::make_unique<RawFormat>(escape);
}

}  // namespace trelvo
