#include "commands/input_files.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "text/escape.h"
#include "train/capture_line.h"

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

std::string InputName(const std::string& path) {
    return path == kStandardInput ? "standard input" : path;
}

std::vector<std::string> DumpsIn(const std::string& folder) {
    std::vector<std::string> found;
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        // What is not a file either is refused when it is opened, with a word.
        std::error_code ignored;
        if (IsDumpName(entry->path().filename().string()) && !entry->is_directory(ignored)) {
            found.push_back(entry->path().string());
        }
    }
    if (error) {
        throw std::system_error(error);
    }
    std::sort(found.begin(), found.end(), NaturalLess);
    return found;
}

std::vector<std::string> ExpandInputs(const std::vector<std::string>& words, Faults& faults) {
    std::vector<std::string> files;
    for (const std::string& word : words) {
        std::error_code error;
        if (word == kStandardInput || !fs::is_directory(word, error)) {
            files.push_back(word);
            continue;
        }
        faults.Try(word, [&] {
            const std::vector<std::string> found = DumpsIn(word);
            if (found.empty()) {
                faults.Tell("no dumps in " + word + " (*.dump, *.dump.zst)", ExitCode::kDamage);
            }
            files.insert(files.end(), found.begin(), found.end());
        });
    }
    return files;
}

std::unique_ptr<DumpReader> OpenDump(Input& input) {
    try {
        return std::make_unique<DumpReader>(input);
    } catch (const DamageError&) {
        input.Seek(0);
        std::array<char, 4096> start;
        std::string_view text(start.data(), input.Read(start.data(), start.size()));
        if (text.empty()) {
            throw OtherFormatError("empty, not a dump");
        }
        // The last line may end within a character.
        const std::string_view line = text.substr(0, text.find('\n'));
        const size_t end = text.rfind('\n');
        text = text.substr(0, end == std::string_view::npos ? text.size() : end);
        std::string joined(text);
        std::replace(joined.begin(), joined.end(), '\n', ' ');
        if (ParseCaptureLine(line)) {
            throw OtherFormatError("not a dump: this is capture text; `trelvoctl train` reads it");
        }
        if (IsText(joined)) {
            throw OtherFormatError("not a dump (it looks like text)");
        }
        throw;
    }
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
