#include "patterns/masking.h"

#include <algorithm>

namespace trelvo {

namespace {

constexpr size_t kMaxGroups = 32;     // of an address
constexpr size_t kMaxEnclosed = 256;  // bytes between two quotation marks or brackets of a pair

enum Kind : uint8_t {
    kLetter = 1,
    kHexLetter = 2,
    kDigit = 4,
    kJoin = 8,  // may stand inside a name or number
    kSpace = 16,
    kSpecial = 32,  // begins something that is looked at closer
    kEnd = 64,      // ends a value
};

constexpr std::array<uint8_t, 256> MakeKinds() {
    std::array<uint8_t, 256> kinds{};
    for (size_t c = 0; c < kinds.size(); ++c) {
        const bool small = c >= 'a' && c <= 'z';
        const bool large = c >= 'A' && c <= 'Z';
        if (small || large || c == '_' || c >= 0x80) {
            kinds[c] = kLetter;
        }
        if ((c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F')) {
            kinds[c] |= kHexLetter;
        }
        if (c >= '0' && c <= '9') {
            kinds[c] = kDigit | kSpecial;
        }
        if (c <= ' ' || c == 0x7F) {
            kinds[c] = kSpace;
        }
    }
    for (const char c : std::string_view(".-/@+~\\")) {
        kinds[static_cast<uint8_t>(c)] |= kJoin;
    }
    for (const char c : std::string_view(",;)]}>\"'|&")) {
        kinds[static_cast<uint8_t>(c)] |= kEnd;
    }
    for (const char c : std::string_view("=\"'./\\@:")) {
        kinds[static_cast<uint8_t>(c)] |= kSpecial;
    }
    return kinds;
}

constexpr std::array<uint8_t, 256> kKinds = MakeKinds();

bool Is(char c, int kinds) {
    return (kKinds[static_cast<uint8_t>(c)] & kinds) != 0;
}

// What one run of letters, digits and characters that join them consists of.
struct Run {
    explicit Run(std::string_view text) {
        size_t word = 0;  // letters in a row
        char last = 0;    // letter or digit
        for (size_t i = 0; i < text.size(); ++i) {
            const char c = text[i];
            const bool letter = Is(c, kLetter) && c != '_';
            if (letter || Is(c, kDigit)) {
                switches += last != 0 && Is(last, kDigit) == letter ? 1 : 0;
                last = c;
                hex += Is(c, kDigit | kHexLetter) ? 1 : 0;
                digits += letter ? 0 : 1;
                letters += letter ? 1 : 0;
                word = letter ? word + 1 : 0;
                longest_word = std::max(longest_word, word);
                continue;
            }
            word = 0;
            dots += c == '.' ? 1 : 0;
            dashes += c == '-' ? 1 : 0;
            slashes += c == '/' || c == '\\' ? 1 : 0;
            signs += c == '@' ? 1 : 0;
            // "enable....0" has dots between two words, not a name with dots.
            empty_label |= c == '.' && (i == 0 || text[i - 1] == '.');
        }
    }

    size_t digits = 0;
    size_t letters = 0;
    size_t longest_word = 0;
    size_t switches = 0;  // from letters to digits and back
    size_t hex = 0;       // digits and letters that can be hexadecimal
    size_t dots = 0;
    size_t dashes = 0;
    size_t slashes = 0;
    size_t signs = 0;
    bool empty_label = false;
};

// The length of an address of groups of hexadecimal digits, such as a MAC or an IPv6 address, at
// the start of the text; 0: there is none.
size_t AddressLength(std::string_view text) {
    size_t colons = 0;
    size_t group = 0;
    bool digit = false;
    bool pairs = true;
    size_t end = 0;
    for (; end < text.size(); ++end) {
        const char c = text[end];
        if (Is(c, kDigit | kHexLetter)) {
            digit |= Is(c, kDigit);
            if (++group > 4) {
                return 0;
            }
        } else if (c == ':' && end + 1 < text.size() && !Is(text[end + 1], kSpace)) {
            pairs &= group == 2;
            if (++colons == kMaxGroups) {
                return 0;
            }
            group = 0;
        } else {
            break;
        }
    }
    const bool complete = end == text.size() || !Is(text[end], kLetter);
    return complete && colons >= 2 && (digit || (pairs && group == 2)) ? end : 0;
}

// From a bracket at the start of the text to the one that closes it; 1 where none does.
size_t BracketLength(std::string_view text) {
    int depth = 0;
    for (size_t i = 0; i < std::min(text.size(), kMaxEnclosed); ++i) {
        if (text[i] == '(' || text[i] == '[' || text[i] == '{') {
            ++depth;
        } else if ((text[i] == ')' || text[i] == ']' || text[i] == '}') && --depth == 0) {
            return i + 1;
        }
    }
    return 1;
}

// Units that whoever prints a value chooses by its size.
bool IsUnit(std::string_view word) {
    static constexpr std::array<std::string_view, 15> kUnits{
        "ns", "us", "µs", "ms", "s", "sec", "B", "kB", "KB", "MB", "GB", "TB", "KiB", "MiB", "GiB"};
    return std::find(kUnits.begin(), kUnits.end(), word) != kUnits.end();
}

bool IsDateName(std::string_view word) {
    static constexpr std::string_view kNames =
        "Mon Tue Wed Thu Fri Sat Sun Jan Feb Mar Apr May Jun Jul Aug Sep Oct Nov Dec";
    if (word.size() == 4 && word.back() == ',') {
        word.remove_suffix(1);
    }
    return word.size() == 3 && kNames.find(word) % 4 == 0;
}

// REQUIRES: the text does not begin with a digit.
bool IsValue(std::string_view text, const Run& run) {
    if (run.letters + run.digits == 0) {
        return false;
    }
    if (run.slashes >= 2 || (run.slashes == 1 && (Is(text.front(), kJoin) || run.dots > 0))) {
        return true;
    }
    if (run.signs == 1 && Is(text.front(), kLetter) && Is(text.back(), kLetter | kDigit)) {
        return true;
    }
    if (run.dots >= 2 && !run.empty_label) {
        return true;
    }
    const bool all_hex = run.hex + run.dashes == text.size();
    // Whatever the values of its numbers are, an identifier has to get the same form.
    return run.digits > 0 &&
           ((all_hex && run.hex >= 6) || run.longest_word < 3 || run.switches >= 4);
}

}  // namespace

void MaskedMessage::AppendWildcard() {
    // Values that only a separator keeps apart are one: an address and its port, a date and a time.
    const size_t begin = begins_[size_];
    const std::string_view word = std::string_view(text_).substr(begin);
    for (const size_t joint : {size_t{0}, size_t{1}}) {
        const size_t length = kWildcard.size() + joint;
        if (word.size() >= length &&
            word.substr(word.size() - length, kWildcard.size()) == kWildcard &&
            (joint == 0 || Is(word.back(), kJoin) || word.back() == ':')) {
            text_.resize(text_.size() - joint);
            return;
        }
    }
    text_ += kWildcard;
}

void MaskedMessage::AppendRun(std::string_view& rest) {
    if (rest.front() == '@' || rest.front() == '~') {
        text_ += rest.front();
        rest.remove_prefix(1);
        return;
    }
    size_t end = 0;
    uint8_t kinds = 0;
    while (end < rest.size() && Is(rest[end], kLetter | kDigit | kJoin)) {
        kinds |= kKinds[static_cast<uint8_t>(rest[end])];
        ++end;
    }
    const bool colon = end < rest.size() && rest[end] == ':';
    const bool joins_nothing = (kinds & (kLetter | kDigit)) == 0;
    if (joins_nothing || ((kinds & (kDigit | kJoin)) == 0 && !colon)) {
        text_ += rest.substr(0, end);
        rest.remove_prefix(end);
        return;
    }
    if (const size_t address = colon ? AddressLength(rest) : 0; address > 0) {
        AppendWildcard();
        rest.remove_prefix(address);
        return;
    }
    std::string_view run = rest.substr(0, end);
    // What ends a sentence or leads to something else is not of the name.
    while (run.size() > 1 && Is(run.back(), kJoin) && run.back() != '/') {
        run.remove_suffix(1);
    }
    rest.remove_prefix(run.size());
    if (rest.substr(0, 3) == "://" || (run.size() == 1 && rest.substr(0, 2) == ":\\")) {
        while (!rest.empty() && !Is(rest.front(), kSpace | kEnd)) {
            rest.remove_prefix(1);
        }
        AppendWildcard();
        return;
    }
    if (run.size() > 1 && (run.front() == '-' || run.front() == '+') && Is(run[1], kDigit)) {
        run.remove_prefix(1);
    }
    if (Is(run.front(), kDigit)) {
        AppendWildcard();
        return;
    }
    const Run parts(run);
    if (IsValue(run, parts)) {
        AppendWildcard();
        return;
    }
    if (parts.digits == 0) {
        text_ += run;
        return;
    }
    for (size_t i = 0; i < run.size(); ++i) {
        const bool sign = run[i] == '-' && i + 1 < run.size() && Is(run[i + 1], kDigit) && i > 0 &&
                          run[i - 1] == '_';
        if (!Is(run[i], kDigit) && !sign) {
            text_ += run[i];
        } else if (i == 0 || (!Is(run[i - 1], kDigit) && text_.back() != kWildcard.back())) {
            text_ += kWildcard;
        }
    }
}

// What stands behind a "=", up to what separates it from others; with all that its own brackets
// enclose.
void MaskedMessage::AppendValue(std::string_view& rest) {
    size_t end = 0;
    bool paired = true;
    while (end < rest.size() && !Is(rest[end], kSpace | kEnd)) {
        const bool opens = std::string_view("([{").find(rest[end]) != std::string_view::npos;
        const size_t length = opens && paired ? BracketLength(rest.substr(end)) : 1;
        paired &= !opens || length > 1;
        end += length;
    }
    if (end > 0) {
        AppendWildcard();
        rest.remove_prefix(end);
    }
}

// Up to the next blank.
void MaskedMessage::AppendWord(std::string_view& rest) {
    // Most words have nothing to look at.
    size_t plain = 0;
    while (plain < rest.size() && !Is(rest[plain], kSpace | kSpecial | kJoin)) {
        ++plain;
    }
    if (plain == rest.size() || Is(rest[plain], kSpace)) {
        text_ += rest.substr(0, plain);
        rest.remove_prefix(plain);
        return;
    }
    const size_t begin = begins_[size_];
    while (!rest.empty() && !Is(rest.front(), kSpace)) {
        const char c = rest.front();
        const bool in_name = text_.size() > begin && Is(text_.back(), kLetter);
        if (c == '"' || (c == '\'' && !in_name)) {
            const bool assigned =
                text_.size() > begin ? text_.back() == '=' : size_ > 0 && Word(size_ - 1) == "=";
            const size_t close = rest.substr(0, kMaxEnclosed).find(c, 1);
            // Several words within quotation marks are text, of which parts are values.
            const bool closed =
                close != std::string_view::npos && (assigned || close > 1) &&
                (assigned || rest.find(' ') > close) &&
                (close + 1 == rest.size() || !Is(rest[close + 1], kLetter | kDigit));
            text_ += c;
            rest.remove_prefix(1);
            if (closed) {
                text_ += kWildcard;
                text_ += c;
                rest.remove_prefix(close);
            } else if (close == 1) {
                text_ += c;  // which opens nothing
                rest.remove_prefix(1);
            }
        } else if (Is(c, kLetter | kDigit | kJoin)) {
            AppendRun(rest);
        } else {
            text_ += c;
            rest.remove_prefix(1);
            if (c == '=' && !rest.empty() && rest.front() != '=' && text_.size() > begin + 1) {
                AppendValue(rest);
            }
        }
    }
}

void MaskedMessage::EndWord() {
    // The names of a date are values where its numbers are next to them.
    if (std::string_view(text_).substr(begins_[size_], kWildcard.size()) == kWildcard) {
        for (size_t back = 0; size_ > 0 && back < 2 && IsDateName(Word(size_ - 1)); ++back) {
            text_.erase(begins_[size_ - 1], begins_[size_] - begins_[size_ - 1]);
            --size_;
        }
    }
    if (size_ > 0) {
        const std::string_view before = Word(size_ - 1);
        const std::string_view unit = std::string_view(text_).substr(begins_[size_]);
        const size_t letters = std::min(unit.find_last_not_of(".,;:)]") + 1, unit.size());
        if (before.size() >= kWildcard.size() &&
            before.substr(before.size() - kWildcard.size()) == kWildcard &&
            IsUnit(unit.substr(0, letters))) {
            text_.erase(begins_[size_], letters);
            begins_[size_] = static_cast<uint32_t>(text_.size());
            return;
        }
        // A list of values: what it ends with stands for all of it.
        const auto is_value = [](std::string_view word) {
            return word.substr(0, kWildcard.size()) == kWildcard &&
                   (word.size() == kWildcard.size() ||
                    (word.size() == kWildcard.size() + 1 &&
                     std::string_view(",.;:!?)]").find(word.back()) != std::string_view::npos));
        };
        const std::string_view word = std::string_view(text_).substr(begins_[size_]);
        if (word == before ? word.find(kWildcard) != std::string_view::npos
                           : is_value(word) && is_value(before) &&
                                 (before.size() == kWildcard.size() || before.back() == ',')) {
            const size_t length = word.size();
            text_.erase(begins_[size_ - 1], begins_[size_] - begins_[size_ - 1]);
            begins_[size_] = begins_[size_ - 1] + static_cast<uint32_t>(length);
            return;
        }
    }
    begins_[++size_] = static_cast<uint32_t>(text_.size());
}

void MaskedMessage::Assign(std::string_view message) {
    text_.clear();
    size_ = 0;
    std::string_view rest = message.substr(0, kMaxBytes);
    bool cut = message.size() > kMaxBytes;
    // Not with half a word at the end.
    while (cut && !rest.empty() && !Is(rest.back(), kSpace)) {
        rest.remove_suffix(1);
    }
    for (;;) {
        while (!rest.empty() && Is(rest.front(), kSpace)) {
            rest.remove_prefix(1);
        }
        if (rest.empty()) {
            break;
        }
        if (size_ + 1 == kMaxWords) {
            cut = true;
            break;
        }
        const bool assigned = size_ > 0 && Word(size_ - 1) == "=";
        if (assigned) {
            AppendValue(rest);
        }
        AppendWord(rest);
        EndWord();
    }
    // A list of values ends anyhow with one that stands for the rest.
    if (cut && (size_ == 0 || Word(size_ - 1).find(kWildcard) == std::string_view::npos)) {
        text_ += kWildcard;
        EndWord();
    }
}

}  // namespace trelvo
