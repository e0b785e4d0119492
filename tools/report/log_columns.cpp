#include "report/log_columns.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <utility>

#include "patterns/masking.h"
#include "text/columns.h"
#include "text/escape.h"

namespace trelvo {

namespace {

using Json = nlohmann::ordered_json;

// A clock that is off by more than this was set; less is a correction.
constexpr int64_t kClockSet = 60000;  // milliseconds

constexpr size_t kNone = std::string_view::npos;

std::vector<std::string> SplitPattern(const std::string& text) {
    std::vector<std::string> pieces;
    size_t begin = 0;
    for (size_t end = 0; (end = text.find(kWildcard, begin)) != std::string::npos;) {
        pieces.push_back(text.substr(begin, end - begin));
        begin = end + kWildcard.size();
    }
    pieces.push_back(text.substr(begin));
    return pieces;
}

bool TakeFront(std::string_view piece, std::string_view& text) {
    const bool found = text.substr(0, piece.size()) == piece;
    text.remove_prefix(found ? piece.size() : 0);
    return found;
}

bool TakeBack(std::string_view piece, std::string_view& text) {
    const size_t rest = text.size() - std::min(text.size(), piece.size());
    const bool found = text.substr(rest) == piece;
    text.remove_suffix(found ? piece.size() : 0);
    return found;
}

// Whether the message consists of the pieces with any values between them.
bool SplitExactly(std::string_view message, const std::vector<std::string>& pieces,
                  std::vector<std::string_view>& values) {
    values.clear();
    if (pieces.size() == 1) {
        return message == pieces.front();
    }
    if (!TakeFront(pieces.front(), message) || !TakeBack(pieces.back(), message)) {
        return false;
    }
    for (size_t i = 1; i + 1 < pieces.size(); ++i) {
        const size_t found = message.find(pieces[i]);
        if (found == kNone) {
            return false;
        }
        values.push_back(message.substr(0, found));
        message.remove_prefix(found + pieces[i].size());
    }
    values.push_back(message);
    return true;
}

bool IsBlank(char c) {
    return static_cast<unsigned char>(c) <= ' ' || c == 0x7F;
}

// Where the piece ends that starts there, a blank of it standing for any row of blanks.
size_t EndOfPiece(std::string_view message, size_t at, std::string_view piece) {
    for (const char c : piece) {
        if (at == message.size() || (c == ' ' ? !IsBlank(message[at]) : message[at] != c)) {
            return kNone;
        }
        ++at;
        while (c == ' ' && at < message.size() && IsBlank(message[at])) {
            ++at;
        }
    }
    return at;
}

// The pieces as they stand in the message, with its own blanks; none where it has other words.
std::vector<std::string> PiecesIn(std::string_view message,
                                  const std::vector<std::string>& pieces) {
    size_t end = message.size();
    while (end > 0 && IsBlank(message[end - 1])) {
        --end;
    }
    size_t at = 0;
    while (at < end && IsBlank(message[at])) {
        ++at;
    }
    std::vector<std::string> found;
    size_t begin = 0;  // of what belongs to the piece
    for (size_t i = 0; i < pieces.size(); ++i) {
        const bool last = i + 1 == pieces.size();
        const auto fits = [&](size_t start) {
            const size_t stop = EndOfPiece(message.substr(0, end), start, pieces[i]);
            return last && stop != end ? kNone : stop;
        };
        size_t stop = fits(at);
        while (stop == kNone && i > 0 && at < end) {
            stop = fits(++at);
        }
        if (stop == kNone) {
            return {};
        }
        begin = i == 0 ? 0 : at;
        stop = last ? message.size() : stop;
        found.emplace_back(message.substr(begin, stop - begin));
        at = stop;
    }
    return found;
}

void AppendTime(int64_t delta, std::string& out) {
    auto rest = static_cast<uint64_t>(delta) << 1U;
    rest = delta < 0 ? ~rest : rest;
    for (; rest > 0x7F; rest >>= 7U) {
        out += static_cast<char>(0x80U | (rest & 0x7FU));
    }
    out += static_cast<char>(rest);
}

void AppendPlanes(const std::vector<uint32_t>& numbers, std::string& out) {
    for (const unsigned shift : {0U, 8U, 16U, 24U}) {
        for (const uint32_t number : numbers) {
            out += static_cast<char>(number >> shift & 0xFFU);
        }
    }
}

const char* NameOf(Break kind) {
    switch (kind) {
        case Break::kGap:
            return "gap";
        case Break::kFresh:
            return "fresh";
        case Break::kRestart:
            return "restart";
        case Break::kReboot:
            return "reboot";
        case Break::kNone:
            break;
    }
    return "";
}

}  // namespace

LogColumns::LogColumns(const PatternTable& table, Taker taker) : taker_(std::move(taker)) {
    for (const auto& row : table.Rows()) {
        patterns_.push_back(Utf8(row->text));
    }
    patterns_.emplace_back(kWildcard);
    pattern_forms_.resize(patterns_.size());
}

void LogColumns::Add(const Line& line, const LineContext& context, std::optional<size_t> pattern,
                     uint32_t change) {
    message_.clear();
    if (line.kind == Line::Message::kCode) {
        message_ = "<code " + Hex(line.message) + '>';
    } else {
        AppendUtf8(line.message, message_);
    }
    if (context.before != Break::kNone) {
        marks_.push_back({lines_, NameOf(context.before), context.gap_ms});
    }
    boot_times_.resize(std::max(boot_times_.size(), context.boot_place + 1));
    auto& boot_time_ms = boot_times_[context.boot_place];
    const int64_t set_by =
        boot_time_ms ? context.boot_time_ms.value_or(*boot_time_ms) - *boot_time_ms : 0;
    if (std::abs(set_by) > kClockSet) {
        marks_.push_back({lines_, "clock set", 0});
        clocks_set_.push_back({lines_, set_by});
    }
    boot_time_ms = context.boot_time_ms;
    const int64_t ms = context.boot_time_ms.value_or(0) + line.time_ms;
    AppendTime(ms - last_ms_, times_);
    last_ms_ = ms;
    const size_t number = FormOf(message_, pattern.value_or(patterns_.size() - 1));
    Form& form = forms_[number];
    form.sources.push_back(SourceOf(line, context, change));
    for (size_t i = 0; i < values_.size(); ++i) {
        form.values[i].append(values_[i]) += '\n';
    }
    line_forms_.push_back(static_cast<uint32_t>(number));
    ++lines_;
    if (line_forms_.size() == kBlockLines) {
        Finish();
    }
}

void LogColumns::Finish() {
    if (line_forms_.empty()) {
        return;
    }
    Block block;
    block.lines = line_forms_.size();
    block.columns = std::exchange(times_, {});
    AppendPlanes(line_forms_, block.columns);
    line_forms_.clear();
    std::vector<uint32_t> sources;
    for (Form& form : forms_) {
        sources.insert(sources.end(), form.sources.begin(), form.sources.end());
        form.sources.clear();
        for (std::string& values : form.values) {
            block.text += std::exchange(values, {});
        }
    }
    AppendPlanes(sources, block.columns);
    taker_(block);
}

size_t LogColumns::FormOf(std::string_view message, size_t pattern) {
    PatternForms& known = pattern_forms_[pattern];
    for (const size_t form : known.forms) {
        if (SplitExactly(message, forms_[form].pieces, values_)) {
            return form;
        }
    }
    if (known.forms.size() < kMaxForms && message.size() <= kMaxFormMessage) {
        std::vector<std::string> pieces = PiecesIn(message, SplitPattern(patterns_[pattern]));
        if (!pieces.empty() && SplitExactly(message, pieces, values_)) {
            known.forms.push_back(AddForm(pattern, std::move(pieces)));
            return known.forms.back();
        }
    }
    values_ = {message};
    if (!known.whole) {
        known.whole = AddForm(pattern, {"", ""});
    }
    return *known.whole;
}

size_t LogColumns::AddForm(size_t pattern, std::vector<std::string> pieces) {
    Form form;
    form.pattern = pattern;
    form.values.resize(pieces.size() - 1);
    form.pieces = std::move(pieces);
    forms_.push_back(std::move(form));
    return forms_.size() - 1;
}

uint32_t LogColumns::SourceOf(const Line& line, const LineContext& context, uint32_t change) {
    auto tag = tags_.find(line.source.tag);
    if (tag == tags_.end()) {
        tag = tags_.emplace(line.source.tag, tags_.size()).first;
    }
    const Source source{
        line.level,      static_cast<int64_t>(tag->second),        line.source.pid,
        line.source.tid, static_cast<int64_t>(context.boot_place), context.latest ? 1 : 0,
        change};
    return sources_.emplace(source, static_cast<uint32_t>(sources_.size())).first->second;
}

Json LogColumns::Tables() const {
    std::vector<std::string> tags(tags_.size());
    std::vector<size_t> tag_widths(tags_.size());
    for (const auto& [tag, number] : tags_) {
        tags[number] = Utf8(tag);
        tag_widths[number] = DisplayWidth(Escape(tag));
    }
    std::array<std::vector<int64_t>, kSourceFields.size()> columns;
    columns.fill(std::vector<int64_t>(sources_.size()));
    for (const auto& [source, number] : sources_) {
        for (size_t field = 0; field < source.size(); ++field) {
            columns.at(field)[number] = source.at(field);
        }
    }
    Json sources;
    for (size_t field = 0; field < columns.size(); ++field) {
        sources[kSourceFields.at(field)] = columns.at(field);
    }
    Json form_patterns = Json::array();
    Json form_texts = Json::array();
    for (const Form& form : forms_) {
        form_patterns.push_back(form.pattern);
        form_texts.push_back(form.pieces);
    }
    return {
        {"lines", lines_},          {"tags", tags},
        {"tag_widths", tag_widths}, {"sources", sources},
        {"patterns", patterns_},    {"forms", {{"pattern", form_patterns}, {"pieces", form_texts}}},
        {"marks", marks_},          {"clocks_set", clocks_set_}};
}

}  // namespace trelvo
