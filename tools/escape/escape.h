#pragma once

#include <string>
#include <string_view>

// Makes text of any origin safe for a terminal, so that it can neither send it commands nor show
// lines in another order than they are. The text can be had back: \\ is a backslash, \xNN one
// byte, \u{N} one code point in hexadecimal.
//   \xNN    control characters (C0, DEL, C1) and what is not UTF-8, byte by byte
//   \u{N}   characters that turn the direction of writing, line and paragraph separators
[[nodiscard]] std::string Escape(std::string_view text);
