#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "patterns/masking.h"

namespace trelvo {

// Groups messages that differ only in their values, in one pass.
//
// What is a value by its look is masked (masking.h); messages that are the same then are one
// pattern. A word is a value by statistics: where several patterns are the same but for one word,
// they become one pattern with a wildcard in its place; the more words they share, the fewer of
// them it takes. Finish() does the same for two places at once. What was merged keeps its numbers:
// Group() tells the pattern that a number stands for now.
//
// Memory follows the number of patterns, never that of messages. Once there are too many, further
// ones are folded: what begins with the same word and has as many is one pattern. The same messages
// in the same order always give the same patterns. Words are compared by 64-bit hashes.
class PatternFinder {
public:
    static constexpr size_t kDefaultMaxPatterns = 10000;

    explicit PatternFinder(size_t max_patterns = kDefaultMaxPatterns);

    // The number of the message's pattern, as of now; numbers count up from 0.
    [[nodiscard]] uint32_t Take(std::string_view message);
    // Merges what only a look at all patterns shows; messages may follow.
    void Finish();

    // The pattern that a number of Take() stands for by now: the number itself, or another one.
    [[nodiscard]] uint32_t Group(uint32_t number) const;
    // Of a pattern that Group() gave: its words with a blank between.
    [[nodiscard]] std::string Text(uint32_t pattern) const;
    // How many numbers there are, and how many patterns they stand for.
    [[nodiscard]] size_t Numbers() const { return parents_.size(); }
    [[nodiscard]] size_t Patterns() const { return live_; }
    // Whether the pattern took in messages only since there were too many others.
    [[nodiscard]] bool IsFold(uint32_t pattern) const { return patterns_[pattern].fold; }

private:
    struct Word {
        uint64_t hash = 0;  // with its place
        std::string text;
        bool constant = false;
    };
    struct Pattern {
        uint64_t hash = 0;
        size_t constants = 0;
        bool learned = false;  // has wildcards that were words
        bool fold = false;
        std::vector<Word> words;  // empty once it is merged into another one
    };
    struct CacheEntry {
        uint64_t hash = 0;
        uint32_t number = 0;
        bool used = false;
    };

    // Whether words, too, are taken where the pattern has a wildcard for values: not where hardly
    // anything is left to tell it by.
    [[nodiscard]] static bool TakesWords(const Pattern& pattern) {
        return pattern.learned || pattern.constants >= 2;
    }
    [[nodiscard]] uint32_t Classify(uint64_t hash);
    // The pattern, other than `self`, that takes the words of hashes_, whose hash this is.
    [[nodiscard]] std::optional<uint32_t> FindWider(uint64_t hash, uint32_t self) const;
    [[nodiscard]] uint32_t Fold();
    [[nodiscard]] uint32_t AddPattern(Pattern pattern);
    void Register(uint32_t number);
    void Unregister(uint32_t number);
    // Makes one pattern of several, with wildcards at the places.
    void Merge(const std::vector<uint32_t>& members, const std::vector<size_t>& places);
    // Makes the members numbers of another pattern, which has wildcards where they have words.
    void Absorb(const std::vector<uint32_t>& members, uint32_t into);
    void MergePairs();

    size_t max_patterns_;
    size_t pair_limit_;  // when merging pairs is tried next
    MaskedMessage message_;
    std::vector<uint64_t> hashes_;  // of the message's words
    std::vector<CacheEntry> cache_;
    mutable std::vector<uint32_t> parents_;
    std::vector<Pattern> patterns_;
    std::unordered_map<uint64_t, uint32_t> by_hash_;
    // Patterns by the hash that they have with a wildcard in one place.
    std::unordered_map<uint64_t, std::vector<uint32_t>> near_;
    // Patterns with several learned wildcards, by number of words and first word.
    std::unordered_map<uint64_t, std::vector<uint32_t>> open_;
    size_t live_ = 0;
};

}  // namespace trelvo
