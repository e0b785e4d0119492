#include "train/code_assignment.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "text/escape.h"
#include "train/record_cost.h"

namespace trelvo {

namespace {

// A text of two bytes gains from codes of one byte only, one of three bytes from those of one and
// two bytes; shorter texts never gain, longer ones from every code.
constexpr size_t kTwoByteText = 2;
constexpr size_t kThreeByteText = 3;

// All byte strings of `size` bytes that are not text, in ascending order.
std::vector<std::string> AllCodes(size_t size) {
    std::vector<std::string> codes;
    const size_t count = size_t{1} << (8 * size);
    for (size_t value = 0; value < count; ++value) {
        std::string code;
        for (size_t byte = size; byte-- > 0;) {
            code += static_cast<char>(value >> (8 * byte) & 0xFF);
        }
        if (!IsText(code)) {
            codes.push_back(std::move(code));
        }
    }
    return codes;
}

// Codes of three bytes. Those from 80 to BF, which no character begins with, come first, and are
// four times as many as a table has entries.
class ThreeByteCodes {
public:
    explicit ThreeByteCodes(const TextSet& taken) : taken_(taken) {}

    [[nodiscard]] std::string Next() {
        std::string code;
        do {
            code = {static_cast<char>(0x80 | (next_ >> 16)), static_cast<char>(next_ >> 8 & 0xFF),
                    static_cast<char>(next_ & 0xFF)};
            ++next_;
        } while (IsText(code) || taken_.count(code) != 0);
        return code;
    }

private:
    const TextSet& taken_;
    uint32_t next_ = 0;
};

std::vector<std::string> FreeCodes(const std::vector<std::string>& all, const TextSet& taken) {
    if (taken.empty()) {
        return all;
    }
    std::vector<std::string> codes;
    std::copy_if(all.begin(), all.end(), std::back_inserter(codes),
                 [&taken](const std::string& code) { return taken.count(code) == 0; });
    return codes;
}

bool MoreFrequent(const CountedText& a, const CountedText& b) {
    return a.count != b.count ? a.count > b.count : a.text < b.text;
}

// Sums of the counts of the first n texts, for every n.
class Prefixes {
public:
    Prefixes(const std::vector<CountedText>& texts, const std::vector<size_t>& order) {
        for (const size_t place : order) {
            sums_.push_back(sums_.back() + texts[place].count);
        }
    }
    [[nodiscard]] uint64_t First(size_t n) const { return sums_[std::min(n, sums_.size() - 1)]; }

private:
    std::vector<uint64_t> sums_{0};
};

// Keeps those that would save most with the shortest codes.
void KeepBest(std::vector<CountedText>& texts, size_t most) {
    if (texts.size() <= most) {
        return;
    }
    const auto saving = [](const CountedText& text) {
        return static_cast<double>(text.count) *
               static_cast<double>(MessageCost(text.text.size()) - MessageCost(1));
    };
    std::sort(texts.begin(), texts.end(), [&saving](const CountedText& a, const CountedText& b) {
        const double left = saving(a);
        const double right = saving(b);
        return left != right ? left > right : a.text < b.text;
    });
    texts.resize(most);
}

}  // namespace

std::vector<uint8_t> AssignSizes(const std::vector<CountedText>& texts, CodeSupply supply) {
    std::vector<size_t> two_byte_texts;
    std::vector<size_t> longer;
    for (size_t i = 0; i < texts.size(); ++i) {
        if (texts[i].text.size() > kTwoByteText) {
            longer.push_back(i);
        } else if (texts[i].text.size() == kTwoByteText) {
            two_byte_texts.push_back(i);
        }
    }
    const auto by_count = [&texts](size_t a, size_t b) { return MoreFrequent(texts[a], texts[b]); };
    std::sort(two_byte_texts.begin(), two_byte_texts.end(), by_count);
    std::sort(longer.begin(), longer.end(), by_count);

    // How many of the two-byte texts get codes of one byte; of equals, the fewest.
    const Prefixes short_counts(texts, two_byte_texts);
    const Prefixes long_counts(texts, longer);
    size_t best = 0;
    uint64_t best_saving = 0;
    for (size_t x = 0; x <= std::min(supply.one_byte, two_byte_texts.size()); ++x) {
        const uint64_t saving = short_counts.First(x) + long_counts.First(supply.one_byte - x) +
                                long_counts.First(supply.one_byte - x + supply.two_bytes);
        if (saving > best_saving) {
            best = x;
            best_saving = saving;
        }
    }

    std::vector<uint8_t> sizes(texts.size(), 0);
    for (size_t i = 0; i < best; ++i) {
        sizes[two_byte_texts[i]] = 1;
    }
    const size_t one_byte = supply.one_byte - best;
    for (size_t i = 0; i < longer.size(); ++i) {
        const bool any_gain = texts[longer[i]].text.size() > kThreeByteText;
        sizes[longer[i]] = i < one_byte                      ? 1
                           : i < one_byte + supply.two_bytes ? 2
                           : any_gain                        ? 3
                                                             : 0;
    }
    return sizes;
}

std::vector<CodedText> AssignCodes(std::vector<CountedText> texts, const TextSet& taken,
                                   size_t most_entries) {
    static const std::vector<std::string> kOneByte = AllCodes(1);
    static const std::vector<std::string> kTwoBytes = AllCodes(2);

    texts.erase(
        std::remove_if(texts.begin(), texts.end(),
                       [](const CountedText& text) { return text.text.size() < kTwoByteText; }),
        texts.end());
    KeepBest(texts, std::min(most_entries, kMostEntries));
    std::sort(texts.begin(), texts.end(), MoreFrequent);

    const std::vector<std::string> one_byte = FreeCodes(kOneByte, taken);
    const std::vector<std::string> two_bytes = FreeCodes(kTwoBytes, taken);
    ThreeByteCodes three_bytes(taken);
    const std::vector<uint8_t> sizes = AssignSizes(texts, {one_byte.size(), two_bytes.size()});
    auto next_one = one_byte.begin();
    auto next_two = two_bytes.begin();
    std::vector<CodedText> coded;
    for (size_t i = 0; i < texts.size(); ++i) {
        if (sizes[i] != 0) {
            coded.push_back({texts[i].text, texts[i].count,
                             sizes[i] == 1   ? *next_one++
                             : sizes[i] == 2 ? *next_two++
                                             : three_bytes.Next()});
        }
    }
    std::sort(coded.begin(), coded.end(),
              [](const CodedText& a, const CodedText& b) { return a.text < b.text; });
    return coded;
}

}  // namespace trelvo
