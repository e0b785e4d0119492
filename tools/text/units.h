#pragma once

#include <cstdint>
#include <string>

namespace trelvo {

// "43 B", "1.2 KiB", "3.4 MiB", "5.6 GiB".
[[nodiscard]] std::string SizeText(uint64_t bytes);

// "9.000 s", "12 min 5 s", "2 h 16 min", "3 d 4 h".
[[nodiscard]] std::string SpanText(int64_t milliseconds);

}  // namespace trelvo
