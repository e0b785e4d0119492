#include "text/escape.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace trelvo {

namespace {

constexpr char kHexDigits[] = "0123456789ABCDEF";

struct Character {
    uint32_t code = 0;
    size_t size = 0;  // 0: the text does not start with a character in UTF-8
};

Character FirstCharacter(std::string_view text) {
    const auto first = static_cast<uint8_t>(text.front());
    if (first < 0x80) {
        return {first, 1};
    }
    // Continuation bytes and F8 upwards start no character.
    const size_t size = first < 0xC0   ? 0
                        : first < 0xE0 ? 2
                        : first < 0xF0 ? 3
                        : first < 0xF8 ? 4
                                       : 0;
    if (size == 0 || text.size() < size) {
        return {};
    }
    uint32_t code = first & (0x7FU >> size);
    for (const char next : text.substr(1, size - 1)) {
        const auto byte = static_cast<uint8_t>(next);
        if ((byte & 0xC0) != 0x80) {
            return {};
        }
        code = code << 6 | (byte & 0x3FU);
    }
    // A character has one form, the shortest; halves of surrogate pairs are not characters.
    const uint32_t smallest = size == 2 ? 0x80 : size == 3 ? 0x800 : 0x10000;
    if (code < smallest || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) {
        return {};
    }
    return {code, size};
}

bool IsControl(uint32_t code) {
    return code < 0x20 || (code >= 0x7F && code <= 0x9F);
}

// How many bytes at the front need no look at: printable ASCII without backslashes, which is most
// of what is logged. Eight at a time, each in its own lane of a word.
size_t PlainPrefix(std::string_view text) {
    constexpr uint64_t kOnes = 0x0101010101010101;
    constexpr uint64_t kHighBits = 0x80 * kOnes;
    size_t size = 0;
    for (; size + sizeof(uint64_t) <= text.size(); size += sizeof(uint64_t)) {
        uint64_t word = 0;
        std::memcpy(&word, text.data() + size, sizeof word);
        const uint64_t backslash = word ^ '\\' * kOnes;
        // A lane's high bit is set: a byte of 80 upwards, 7F, below 20, or a backslash. A borrow
        // can only come from a lane that is found itself.
        if (((word | (word + kOnes) | (word - 0x20 * kOnes) | (backslash - kOnes)) & kHighBits) !=
            0) {
            break;
        }
    }
    while (size < text.size() && text[size] >= 0x20 && text[size] < 0x7F && text[size] != '\\') {
        ++size;
    }
    return size;
}

bool ReordersText(uint32_t code) {
    return code == 0x061C || code == 0x200E || code == 0x200F ||
           (code >= 0x2028 && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
}

void AppendByte(std::string& out, char byte) {
    const auto value = static_cast<uint8_t>(byte);
    out += "\\x";
    out += kHexDigits[value >> 4];
    out += kHexDigits[value & 0x0F];
}

// None of those that are escaped is above FFFF.
void AppendHexDigits(std::string& out, uint32_t code) {
    for (int shift = 12; shift >= 0; shift -= 4) {
        out += kHexDigits[code >> shift & 0x0F];
    }
}

void AppendCodePoint(std::string& out, uint32_t code) {
    out += "\\u{";
    AppendHexDigits(out, code);
    out += '}';
}

template <typename Predicate>
bool AllCharacters(std::string_view bytes, const Predicate& holds) {
    while (!bytes.empty()) {
        const Character character = FirstCharacter(bytes);
        if (character.size == 0 || !holds(character.code)) {
            return false;
        }
        bytes.remove_prefix(character.size);
    }
    return true;
}

// Takes over plain ASCII as it is, and gives each other character to `append`, with its bytes.
template <typename Append>
void AppendOthers(std::string_view text, std::string& out, const Append& append) {
    while (!text.empty()) {
        const size_t plain = PlainPrefix(text);
        out += text.substr(0, plain);
        text.remove_prefix(plain);
        if (text.empty()) {
            return;
        }
        const Character character = FirstCharacter(text);
        const std::string_view bytes = text.substr(0, character.size == 0 ? 1 : character.size);
        append(character, bytes);
        text.remove_prefix(bytes.size());
    }
}

}  // namespace

void AppendEscaped(std::string_view text, std::string& out) {
    AppendOthers(text, out, [&out](const Character& character, std::string_view bytes) {
        if (character.size == 0 || IsControl(character.code)) {
            for (const char byte : bytes) {
                AppendByte(out, byte);
            }
        } else if (ReordersText(character.code)) {
            AppendCodePoint(out, character.code);
        } else if (character.code == '\\') {
            out += "\\\\";
        } else {
            out += bytes;
        }
    });
}

void AppendJsonEscaped(std::string_view json, std::string& out) {
    while (!json.empty()) {
        // What is not plain ASCII is looked at, backslashes included.
        const size_t plain = PlainPrefix(json);
        out += json.substr(0, plain);
        json.remove_prefix(plain);
        if (json.empty()) {
            return;
        }
        const Character character = FirstCharacter(json);
        const size_t size = character.size == 0 ? 1 : character.size;
        if (IsControl(character.code) || ReordersText(character.code)) {
            out += "\\u";
            AppendHexDigits(out, character.code);
        } else {
            out += json.substr(0, size);
        }
        json.remove_prefix(size);
    }
}

void AppendUtf8(std::string_view text, std::string& out) {
    AppendOthers(text, out, [&out](const Character& character, std::string_view bytes) {
        if (character.size == 0 || character.code == '\n' || character.code >= 0x10FF00) {
            for (const char byte : bytes) {
                const auto value = static_cast<uint8_t>(byte);
                out += "\xF4\x8F";
                out += static_cast<char>(0xBC | value >> 6);
                out += static_cast<char>(0x80 | (value & 0x3F));
            }
        } else {
            out += bytes;
        }
    });
}

std::string Utf8(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    AppendUtf8(text, out);
    return out;
}

std::string Escape(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    AppendEscaped(text, out);
    return out;
}

bool IsUtf8(std::string_view bytes) {
    return AllCharacters(bytes, [](uint32_t /*code*/) { return true; });
}

bool IsText(std::string_view bytes) {
    return AllCharacters(bytes, [](uint32_t code) { return !IsControl(code) || code == '\t'; });
}

std::string Hex(std::string_view bytes) {
    std::string digits;
    digits.reserve(2 * bytes.size());
    for (const char byte : bytes) {
        const auto value = static_cast<uint8_t>(byte);
        digits += kHexDigits[value >> 4];
        digits += kHexDigits[value & 0x0F];
    }
    return digits;
}

}  // namespace trelvo
