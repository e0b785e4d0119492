#include "text/columns.h"

#include <glib.h>

#include <algorithm>
#include <string>

#include "text/escape.h"

namespace trelvo {

namespace {

constexpr size_t kMostTag = 24;

// Columns and bytes of the first character.
struct Character {
    explicit Character(std::string_view text) {
        const gunichar code =
            g_utf8_get_char_validated(text.data(), static_cast<gssize>(text.size()));
        if (code <= 0x10FFFF) {
            width = g_unichar_iszerowidth(code) ? 0 : g_unichar_iswide(code) ? 2 : 1;
            bytes = static_cast<size_t>(g_unichar_to_utf8(code, nullptr));
        }
    }
    size_t width = 1;
    size_t bytes = 1;
};

}  // namespace

void Columns::Fit(const Source& source) {
    tag = std::max(tag, std::min(kMostTag, DisplayWidth(Escape(source.tag))));
    pid = std::max(pid, std::to_string(source.pid).size());
    if (source.tid != source.pid) {
        tid = std::max(tid, std::to_string(source.tid).size());
    }
}

size_t DisplayWidth(std::string_view text) {
    size_t width = 0;
    while (!text.empty()) {
        const Character character(text);
        width += character.width;
        text.remove_prefix(character.bytes);
    }
    return width;
}

size_t BytesWithin(std::string_view text, size_t width) {
    size_t bytes = 0;
    while (bytes < text.size()) {
        const Character character(text.substr(bytes));
        if (bytes > 0 && character.width > width) {
            break;
        }
        width -= std::min(width, character.width);
        bytes += character.bytes;
    }
    return bytes;
}

}  // namespace trelvo
