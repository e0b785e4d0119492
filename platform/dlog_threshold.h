#pragma once

#include <optional>
#include <string_view>
#include <vector>

namespace port {

// The names of the levels, from verbose to silent.
[[nodiscard]] const std::vector<std::string_view>& LevelNames();

// The letter of the level with this name, or with this letter.
[[nodiscard]] std::optional<char> LevelNamed(std::string_view name);

// From now on messages below this level are not logged. W at first: what a recorder logs must not
// wear the flash that it spares. TRELVO_LOG_LEVEL in the environment overrules it.
void SetLogThreshold(char letter);

}  // namespace port
