#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace trelvo {

// Stands for a variable part in the text of a pattern.
inline constexpr std::string_view kWildcard = "<*>";

// A message as a row of words in which everything that is a value by its look is a wildcard:
// numbers with their units, dates, addresses, hexadecimal and mixed identifiers, paths, dotted
// names, quoted text, and what follows a "=". A list of values is one wildcard.
class MaskedMessage {
public:
    static constexpr size_t kMaxWords = 48;
    static constexpr size_t kMaxBytes = 2048;  // of a message; the rest is one wildcard

    // Replaces the message before; the text need not be UTF-8.
    void Assign(std::string_view message);

    [[nodiscard]] size_t Size() const { return size_; }
    // Lives until the next Assign.
    [[nodiscard]] std::string_view Word(size_t index) const {
        return std::string_view(text_).substr(begins_[index], begins_[index + 1] - begins_[index]);
    }

private:
    void AppendWord(std::string_view& rest);
    void AppendValue(std::string_view& rest);
    void AppendRun(std::string_view& rest);
    void AppendWildcard();
    void EndWord();

    std::string text_;                              // of all words
    std::array<uint32_t, kMaxWords + 1> begins_{};  // in text_; one more for the end
    size_t size_ = 0;
};

}  // namespace trelvo
