#include "commands/input_files.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace trelvo {

namespace fs = std::filesystem;

namespace {

bool EndsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

}  // namespace

bool IsDumpName(std::string_view name) {
    return EndsWith(name, ".dump") || EndsWith(name, ".dump.zst");
}

bool NaturalLess(const std::string& a, const std::string& b) {
    return strverscmp(a.c_str(), b.c_str()) < 0;
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
