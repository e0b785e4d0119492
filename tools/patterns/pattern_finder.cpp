#include "patterns/pattern_finder.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <set>
#include <utility>

namespace trelvo {

namespace {

constexpr size_t kCacheSize = size_t{1} << 15;  // a power of two
constexpr size_t kMaxNumbers = 16;              // for each pattern that there may be
constexpr size_t kMaxOpen = 64;  // patterns that a message is compared with, word by word
constexpr uint32_t kNone = UINT32_MAX;
constexpr size_t kPairValues = 6;
constexpr size_t kPairConstants = 2;   // words that patterns must share to be merged in two places
constexpr size_t kMaxPairPlaces = 16;  // of a pattern

uint64_t Mix(uint64_t value) {
    value ^= value >> 32U;
    value *= 0xD6E8FEB86659FD93U;
    value ^= value >> 32U;
    value *= 0xD6E8FEB86659FD93U;
    return value ^ (value >> 32U);
}

uint64_t HashText(std::string_view text) {
    uint64_t hash = text.size();
    while (text.size() >= sizeof(uint64_t)) {
        uint64_t piece = 0;
        std::memcpy(&piece, text.data(), sizeof piece);
        hash = (hash ^ piece) * 0x9E3779B97F4A7C15U;
        hash ^= hash >> 29U;
        text.remove_prefix(sizeof piece);
    }
    uint64_t piece = 0;
    std::memcpy(&piece, text.data(), text.size());
    return Mix((hash ^ piece) * 0x9E3779B97F4A7C15U);
}

uint64_t Placed(uint64_t hash, size_t place) {
    return Mix(hash + (place + 1) * 0x9E3779B97F4A7C15U);
}

// A message's hash is the sum of these and of its length's, so that a wildcard in one place costs
// one addition.
uint64_t WildcardAt(size_t place) {
    static const auto hashes = [] {
        std::array<uint64_t, MaskedMessage::kMaxWords> all{};
        for (size_t i = 0; i < all.size(); ++i) {
            all[i] = Placed(HashText(kWildcard), i);
        }
        return all;
    }();
    return hashes[place];
}

// Whether a word says something of its own: two letters in a row outside its wildcards.
bool IsConstant(std::string_view word) {
    const auto is_letter = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || static_cast<uint8_t>(c) >= 0x80;
    };
    for (size_t i = 1; i < word.size(); ++i) {
        if (is_letter(word[i - 1]) && is_letter(word[i])) {
            return true;
        }
    }
    return false;
}

// How many different words in one place make it a value, by the constant words around it.
size_t NeededValues(size_t constants) {
    static constexpr std::array<size_t, 4> kNeeded{SIZE_MAX, 12, 6, 4};
    return constants < kNeeded.size() ? kNeeded[constants] : 3;
}

}  // namespace

PatternFinder::PatternFinder(size_t max_patterns)
    : max_patterns_(max_patterns), pair_limit_(max_patterns), cache_(kCacheSize) {
    hashes_.reserve(MaskedMessage::kMaxWords);
}

uint32_t PatternFinder::Take(std::string_view message) {
    message_.Assign(message);
    hashes_.clear();
    uint64_t hash = Mix(message_.Size() + 1);
    for (size_t i = 0; i < message_.Size(); ++i) {
        const std::string_view word = message_.Word(i);
        hashes_.push_back(word == kWildcard ? WildcardAt(i) : Placed(HashText(word), i));
        hash += hashes_.back();
    }
    CacheEntry& entry = cache_[hash & (kCacheSize - 1)];
    if (!entry.used || entry.hash != hash) {
        entry = {hash, Classify(hash), true};
    }
    entry.number = Group(entry.number);
    return entry.number;
}

std::optional<uint32_t> PatternFinder::FindWider(uint64_t hash, uint32_t self) const {
    for (size_t i = 0; i < hashes_.size(); ++i) {
        if (hashes_[i] == WildcardAt(i)) {
            continue;
        }
        const auto found = by_hash_.find(hash - hashes_[i] + WildcardAt(i));
        if (found != by_hash_.end() && TakesWords(patterns_[found->second])) {
            return Group(found->second);
        }
    }
    if (hashes_.empty()) {
        return std::nullopt;
    }
    for (const uint64_t first : {hashes_.front(), WildcardAt(0)}) {
        const auto open = open_.find(first + hashes_.size());
        if (open == open_.end()) {
            continue;
        }
        for (const uint32_t number : open->second) {
            const std::vector<Word>& words = patterns_[number].words;
            bool same = number != self && words.size() == hashes_.size();
            for (size_t i = 0; same && i < words.size(); ++i) {
                same = words[i].hash == hashes_[i] || words[i].hash == WildcardAt(i);
            }
            if (same) {
                return number;
            }
        }
    }
    return std::nullopt;
}

uint32_t PatternFinder::Classify(uint64_t hash) {
    const auto same = by_hash_.find(hash);
    if (same != by_hash_.end()) {
        return same->second;
    }
    if (const auto wider = FindWider(hash, kNone)) {
        return *wider;
    }
    if (live_ >= pair_limit_) {
        MergePairs();
        pair_limit_ = live_ < max_patterns_ - max_patterns_ / 8 ? max_patterns_ : SIZE_MAX;
    }
    if (live_ >= max_patterns_ || parents_.size() >= kMaxNumbers * max_patterns_) {
        return Fold();
    }
    Pattern pattern;
    pattern.hash = hash;
    for (size_t i = 0; i < message_.Size(); ++i) {
        const std::string_view word = message_.Word(i);
        pattern.words.push_back({hashes_[i], std::string(word), IsConstant(word)});
    }
    const uint32_t number = AddPattern(std::move(pattern));
    Register(number);
    return number;
}

// By the first word and the number of words; only by the latter once these are many as well.
uint32_t PatternFinder::Fold() {
    const uint64_t length = Mix(~uint64_t{message_.Size()});
    Pattern pattern;
    pattern.hash = length;
    pattern.fold = true;
    if (message_.Size() > 0) {
        const uint64_t with_first = length + hashes_.front();
        if (live_ < max_patterns_ + max_patterns_ / 8 ||
            by_hash_.find(with_first) != by_hash_.end()) {
            pattern.hash = with_first;
            pattern.words.push_back({0, std::string(message_.Word(0)), false});
        }
    }
    const auto same = by_hash_.find(pattern.hash);
    if (same != by_hash_.end()) {
        return same->second;
    }
    pattern.words.push_back({0, std::string(kWildcard), false});
    return AddPattern(std::move(pattern));
}

uint32_t PatternFinder::AddPattern(Pattern pattern) {
    const auto number = static_cast<uint32_t>(parents_.size());
    for (const Word& word : pattern.words) {
        pattern.constants += word.constant ? 1 : 0;
    }
    by_hash_[pattern.hash] = number;
    parents_.push_back(number);
    patterns_.push_back(std::move(pattern));
    ++live_;
    return number;
}

// Enters a pattern where others that differ in one word will find it, and merges it with those
// that are there as soon as they are enough.
void PatternFinder::Register(uint32_t number) {
    const auto narrower = near_.find(patterns_[number].hash);
    if (narrower != near_.end() && TakesWords(patterns_[number])) {
        const std::vector<uint32_t> members = narrower->second;
        Absorb(members, number);
    }
    for (size_t i = 0; i < patterns_[number].words.size(); ++i) {
        const Pattern& pattern = patterns_[number];
        if (!pattern.words[i].constant || pattern.constants == 1) {
            continue;
        }
        std::vector<uint32_t>& near = near_[pattern.hash - pattern.words[i].hash + WildcardAt(i)];
        near.push_back(number);
        if (near.size() >= NeededValues(pattern.constants - 1)) {
            const std::vector<uint32_t> members = near;
            Merge(members, {i});
            return;
        }
    }
}

void PatternFinder::Unregister(uint32_t number) {
    const Pattern& pattern = patterns_[number];
    for (size_t i = 0; i < pattern.words.size(); ++i) {
        const auto near = near_.find(pattern.hash - pattern.words[i].hash + WildcardAt(i));
        if (near == near_.end()) {
            continue;
        }
        auto& numbers = near->second;
        numbers.erase(std::remove(numbers.begin(), numbers.end(), number), numbers.end());
        if (numbers.empty()) {
            near_.erase(near);
        }
    }
}

void PatternFinder::Merge(const std::vector<uint32_t>& members, const std::vector<size_t>& places) {
    Pattern merged = patterns_[members.front()];
    merged.constants = 0;
    merged.learned = true;
    for (const size_t place : places) {
        merged.hash += WildcardAt(place) - merged.words[place].hash;
        merged.words[place] = {WildcardAt(place), std::string(kWildcard), false};
    }
    const auto same = by_hash_.find(merged.hash);
    if (same != by_hash_.end()) {
        const uint32_t number = Group(same->second);
        patterns_[number].learned = true;
        Absorb(members, number);
        return;
    }
    std::vector<uint32_t>& open = open_[merged.words.front().hash + merged.words.size()];
    const uint32_t number = AddPattern(std::move(merged));
    Absorb(members, number);
    open.erase(std::remove_if(open.begin(), open.end(),
                              [this](uint32_t entry) { return patterns_[entry].words.empty(); }),
               open.end());
    if (open.size() < kMaxOpen) {
        open.push_back(number);
    }
    Register(number);
}

void PatternFinder::Absorb(const std::vector<uint32_t>& members, uint32_t into) {
    for (const uint32_t member : members) {
        Unregister(member);
        // What has learned wildcards goes on leading its messages to where it was merged.
        if (!patterns_[member].learned) {
            by_hash_.erase(patterns_[member].hash);
        }
        patterns_[member].words = {};
        parents_[member] = into;
    }
    live_ -= members.size();
}

// Where at least kPairValues patterns are the same but for two words, and each of the two has as
// many values, they become one pattern.
void PatternFinder::MergePairs() {
    struct Entry {
        uint64_t hash;
        uint32_t number;
        std::pair<uint16_t, uint16_t> places;
    };
    std::map<size_t, std::vector<uint32_t>> by_length;
    for (uint32_t number = 0; number < patterns_.size(); ++number) {
        if (patterns_[number].constants >= kPairConstants + 2) {
            by_length[patterns_[number].words.size()].push_back(number);
        }
    }
    for (const auto& [length, numbers] : by_length) {
        std::vector<Entry> entries;
        for (const uint32_t number : numbers) {
            const std::vector<Word>& words = patterns_[number].words;
            std::vector<uint16_t> places;
            for (uint16_t i = 0; i < length && places.size() < kMaxPairPlaces; ++i) {
                if (words[i].constant) {
                    places.push_back(i);
                }
            }
            for (const uint16_t j : places) {
                const uint64_t hash = patterns_[number].hash + WildcardAt(j) - words[j].hash;
                for (size_t i = 0; places[i] != j; ++i) {
                    entries.push_back({hash + WildcardAt(places[i]) - words[places[i]].hash,
                                       number,
                                       {places[i], j}});
                }
            }
        }
        std::stable_sort(entries.begin(), entries.end(),
                         [](const Entry& a, const Entry& b) { return a.hash < b.hash; });
        for (auto begin = entries.cbegin(); begin != entries.cend();) {
            const auto end = std::find_if(
                begin, entries.cend(), [begin](const Entry& e) { return e.hash != begin->hash; });
            std::vector<uint32_t> members;
            std::set<uint64_t> first;
            std::set<uint64_t> second;
            for (auto entry = begin; entry != end; ++entry) {
                const std::vector<Word>& words = patterns_[entry->number].words;
                if (!words.empty() && entry->places == begin->places) {
                    members.push_back(entry->number);
                    first.insert(words[begin->places.first].hash);
                    second.insert(words[begin->places.second].hash);
                }
            }
            if (std::min(first.size(), second.size()) >= kPairValues) {
                Merge(members, {begin->places.first, begin->places.second});
            }
            begin = end;
        }
    }
}

void PatternFinder::Finish() {
    MergePairs();
    for (uint32_t number = 0; number < patterns_.size(); ++number) {
        const Pattern& pattern = patterns_[number];
        if (pattern.words.empty() || pattern.fold) {
            continue;
        }
        hashes_.clear();
        for (const Word& word : pattern.words) {
            hashes_.push_back(word.hash);
        }
        const auto wider = FindWider(pattern.hash, number);
        if (wider && *wider != number) {
            Absorb({number}, *wider);
        }
    }
}

uint32_t PatternFinder::Group(uint32_t number) const {
    while (parents_[number] != number) {
        parents_[number] = parents_[parents_[number]];
        number = parents_[number];
    }
    return number;
}

std::string PatternFinder::Text(uint32_t pattern) const {
    std::string text;
    for (const Word& word : patterns_[pattern].words) {
        text += text.empty() ? "" : " ";
        text += word.text;
    }
    return text;
}

}  // namespace trelvo
