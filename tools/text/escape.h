#pragma once

#include <string>
#include <string_view>

namespace trelvo {

// Makes text of any origin safe for a terminal, so that it can neither send it commands nor show
// lines in another order than they are. The text can be had back: \\ is a backslash, \xNN one
// byte, \u{N} one code point in hexadecimal.
//   \xNN    control characters (C0, DEL, C1) and what is not UTF-8, byte by byte
//   \u{N}   characters that turn the direction of writing, line and paragraph separators
[[nodiscard]] std::string Escape(std::string_view text);
void AppendEscaped(std::string_view text, std::string& out);

// Makes JSON safe for a terminal likewise, with its own escapes and the same meaning. It must be
// UTF-8, and its C0 controls be escaped already.
void AppendJsonEscaped(std::string_view json, std::string& out);

// Makes UTF-8 without line feeds of any bytes, one to one: a line feed, and each byte of what is
// not UTF-8 or would look like its stand-in, becomes U+10FF00 + byte.
[[nodiscard]] std::string Utf8(std::string_view text);
void AppendUtf8(std::string_view text, std::string& out);

[[nodiscard]] bool IsUtf8(std::string_view bytes);

// Text as people log it: UTF-8 without control characters other than tabs. The empty one is text.
[[nodiscard]] bool IsText(std::string_view bytes);

// The bytes as hexadecimal digits, two each.
[[nodiscard]] std::string Hex(std::string_view bytes);

}  // namespace trelvo
