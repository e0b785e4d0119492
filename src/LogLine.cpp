#include "LogLine.h"

#include <algorithm>
#include <cfloat>
#include <cstdint>
#include <cstring>

namespace line {

namespace {

bool IsBlank(char c) {
    return c == ' ' || c == '\t';
}

// The classic locale's white space.
bool IsSpace(char c) {
    return IsBlank(c) || (c >= '\n' && c <= '\r');
}

template <bool (*IsTrimmed)(char)>
std::string_view TrimLeading(std::string_view text) {
    while (!text.empty() && IsTrimmed(text.front())) {
        text.remove_prefix(1);
    }
    return text;
}

template <bool (*IsTrimmed)(char)>
std::string_view Trim(std::string_view text) {
    while (!text.empty() && IsTrimmed(text.back())) {
        text.remove_suffix(1);
    }
    return TrimLeading<IsTrimmed>(text);
}

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// The first " > ", found by its rarest character.
size_t FindArrow(std::string_view text) {
    size_t at = text.find('>', 1);
    while (at != std::string_view::npos && (text.substr(at - 1, 3) != " > ")) {
        at = text.find('>', at + 1);
    }
    return at == std::string_view::npos ? at : at - 1;
}

}  // namespace

std::string_view TrimBlanks(std::string_view text) {
    return Trim<IsBlank>(text);
}

std::string_view TrimLeadingSpace(std::string_view text) {
    return TrimLeading<IsSpace>(text);
}

std::string_view Before(std::string_view text, std::string_view delimiter) {
    return text.substr(0, text.find(delimiter));
}

float ToFloat(std::string_view text) {
    constexpr size_t kMaxDigits = 15;  // 10^15 - 1 and 10^15 are exact doubles
    uint64_t digits = 0;
    double scale = 1;
    size_t count = 0;
    bool point = false;
    for (const char c : text) {
        if (IsDigit(c)) {
            digits = digits * 10 + static_cast<uint64_t>(c - '0');
            scale = point ? scale * 10 : scale;
            ++count;
        } else if (c == '.' && !point) {
            point = true;
        } else {
            count = 0;
            break;
        }
    }
    // A processor that computes in more than double precision rounds once more than reckoned with.
    if (count == 0 || count > kMaxDigits || FLT_EVAL_METHOD != 0) {
        return std::stof(std::string(text));
    }
    // The quotient of two exact doubles is the double nearest to the decimal number. Rounding that
    // to float gives the nearest float too, unless the first rounding ended half way between two
    // floats, where it hides on which side the number was.
    const double value = static_cast<double>(digits) / scale;
    constexpr uint64_t kBelowFloat = (1U << 29U) - 1;  // the bits of a double that a float lacks
    uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    if ((bits & kBelowFloat) == (kBelowFloat + 1) / 2) {
        return std::stof(std::string(text));
    }
    return static_cast<float>(value);
}

int ToInt(std::string_view text) {
    constexpr size_t kMaxDigits = 9;  // always an int
    int value = 0;
    bool plain = !text.empty() && text.size() <= kMaxDigits;
    for (size_t i = 0; plain && i < text.size(); ++i) {
        plain = IsDigit(text[i]);
        value = value * 10 + (text[i] - '0');
    }
    return plain ? value : std::stoi(std::string(text));
}

LogLine::LogLine(std::string_view text)
    : text_(text),
      blank_(text.find(' ')),
      slash_(text.find('/')),
      process_(text.find("(P")),
      thread_(text.find(", T")),
      close_(text.find("):")),
      arrow_(FindArrow(text)) {}

bool LogLine::IsRecognised() const {
    constexpr size_t npos = std::string_view::npos;
    return close_ != npos && arrow_ != npos && slash_ < arrow_ && blank_ < slash_;
}

LogLine LogLine::WithoutLeadingSpace() const {
    const std::string_view text = TrimLeadingSpace(text_);
    return text.size() == text_.size() ? *this : LogLine(text);
}

int LogLine::Time() const {
    return Saturate<int>(ToFloat(text_.substr(0, blank_)) * 1000.0F);
}

char LogLine::Level() const {
    const std::string_view rest = Slice(text_, blank_ + 1);
    return rest.empty() ? '\0' : rest.front();
}

std::string_view LogLine::Tag() const {
    return Trim<IsSpace>(Slice(text_, slash_ + 1, process_ - slash_ - 1));
}

int LogLine::Pid() const {
    return ToInt(Trim<IsSpace>(Slice(text_, process_ + 2, thread_ - process_ - 2)));
}

int LogLine::Tid() const {
    return ToInt(Trim<IsSpace>(Slice(text_, thread_ + 3, close_ - thread_ - 3)));
}

std::string_view LogLine::Message(std::string& joined) const {
    const std::string_view message = Slice(text_, arrow_ + 3);
    if (message.find('\n') == std::string_view::npos) {
        return message;
    }
    joined = message;
    joined.erase(std::remove(joined.begin(), joined.end(), '\n'), joined.end());
    return joined;
}

}  // namespace line
