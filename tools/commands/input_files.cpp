#include "commands/input_files.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace trelvo {

namespace fs = std::filesystem;

namespace {

bool EndsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// Takes a number's digits off the front, without leading zeros.
std::string_view TakeNumber(std::string_view& text) {
    const size_t size = std::min(text.find_first_not_of("0123456789"), text.size());
    std::string_view number = text.substr(0, size);
    text.remove_prefix(size);
    number.remove_prefix(std::min(number.find_first_not_of('0'), number.size()));
    return number;
}

}  // namespace

bool IsDumpName(std::string_view name) {
    return EndsWith(name, ".dump") || EndsWith(name, ".dump.zst");
}

bool NaturalLess(std::string_view a, std::string_view b) {
    const std::string_view whole_a = a;
    const std::string_view whole_b = b;
    while (!a.empty() && !b.empty()) {
        if (IsDigit(a.front()) && IsDigit(b.front())) {
            const std::string_view number_a = TakeNumber(a);
            const std::string_view number_b = TakeNumber(b);
            if (number_a.size() != number_b.size()) {
                return number_a.size() < number_b.size();
            }
            if (number_a != number_b) {
                return number_a < number_b;
            }
            continue;
        }
        if (a.front() != b.front()) {
            // The plain name comes before the numbered ones: trelvo.dump, trelvo_1.dump.
            return static_cast<unsigned char>(a.front()) < static_cast<unsigned char>(b.front());
        }
        a.remove_prefix(1);
        b.remove_prefix(1);
    }
    return a.empty() != b.empty() ? a.empty() : whole_a < whole_b;
}

std::vector<std::string> ExpandInputs(const std::vector<std::string>& words) {
    std::vector<std::string> files;
    for (const std::string& word : words) {
        std::error_code error;
        if (word == "-" || !fs::is_directory(word, error)) {
            files.push_back(word);
            continue;
        }
        std::vector<std::string> found;
        for (fs::directory_iterator entry(word, error), end; !error && entry != end;
             entry.increment(error)) {
            // What is not a file either is refused when it is opened, with a word.
            std::error_code ignored;
            if (IsDumpName(entry->path().filename().string()) && !entry->is_directory(ignored)) {
                found.push_back(entry->path().string());
            }
        }
        if (error) {
            throw std::system_error(error, word);
        }
        std::sort(found.begin(), found.end(), NaturalLess);
        files.insert(files.end(), found.begin(), found.end());
    }
    return files;
}

uint64_t TotalSize(const std::vector<std::string>& files) {
    uint64_t total = 0;
    for (const std::string& file : files) {
        std::error_code error;
        const auto size = fs::file_size(file, error);
        total += error ? 0 : size;
    }
    return total;
}

}  // namespace trelvo
