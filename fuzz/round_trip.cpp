// Journal entries, formatted by dlogutil, recorded by the service, decoded by trelvoctl: whoever
// logs what, the recorder never stops, and what comes out is what was logged.
//
// Each line of the input is an entry: a letter for the time since the one before, then fields
// "<number of the field in kFieldNames, a letter><value>" that end at tabs.

#include <algorithm>
#include <cctype>
#include <sstream>
#include <vector>

#include "CDataProvider.h"
#include "dlogutil/line_format.h"
#include "support/fuzz_support.h"

namespace {

dlogutil::Fields ReadFields(const std::string& entry) {
    dlogutil::Fields fields;
    std::istringstream text(entry);
    for (std::string field; std::getline(text, field, '\t');) {
        if (!field.empty()) {
            const auto number = static_cast<unsigned char>(field[0]) % dlogutil::kFieldCount;
            std::string data = std::string(dlogutil::kFieldNames[number]) + "=" + field.substr(1);
            std::replace(data.begin(), data.end(), '\x1e', '\n');
            fields.Take(data);
        }
    }
    return fields;
}

// Without the line feed and the blanks before it, which the pipeline does not see.
std::string Trimmed(std::string text) {
    text.erase(text.find_last_not_of(" \t\n") + 1);
    return text;
}

// What must come out of a line: "level/tag(P pid, T tid): message". Empty where the line has no
// prefix and is not recorded.
std::string Expected(const dlogutil::Fields& fields, const std::string& written) {
    const std::string line = Trimmed(written);
    const std::size_t arrow = line.find(" > ");
    if (arrow == std::string::npos) {
        return "";
    }
    const char level = dlogutil::LevelOf(fields);
    const std::size_t process = line.find("(P") + 2;
    const std::size_t thread = line.find(", T") + 3;
    return std::string(1, std::string("IWEF").find(level) != std::string::npos ? level : 'D') +
           "/" + dlogutil::TagOf(fields) + "(P " + std::to_string(std::stoi(line.substr(process))) +
           ", T " + std::to_string(std::stoi(line.substr(thread))) + "): " + line.substr(arrow + 3);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool prepared = (CDataProvider::Instance()->SetBufferSize(1 << 20), true);
    static_cast<void>(prepared);
    std::vector<std::string> expected;
    std::istringstream text(std::string(data, data + size));
    std::uint64_t usec = 1000000;
    for (std::string entry; std::getline(text, entry);) {
        usec += entry.empty() ? 0 : static_cast<std::uint64_t>(entry[0] & 31) * 1000;
        const dlogutil::Fields fields =
            ReadFields(entry.substr(std::min<std::size_t>(entry.size(), 1)));
        std::string lines;
        dlogutil::AppendLines(fields, dlogutil::TagOf(fields), usec, lines);
        fuzz::Require(lines.empty() || lines.back() == '\n', "half a line");
        std::istringstream written(lines);
        for (std::string line; std::getline(written, line);) {
            if (std::string shown = Expected(fields, line); !shown.empty()) {
                expected.push_back(std::move(shown));
            }
            const std::string thrown = fuzz::Feed(line);
            fuzz::Require(thrown.empty(), thrown + " at " + line);
        }
    }
    const std::vector<std::string> decoded = fuzz::Decode(fuzz::Snapshot(true));
    for (std::size_t i = 0; i < expected.size(); ++i) {
        fuzz::Require(i < decoded.size(), "lacks " + expected[i]);
        fuzz::Require(decoded[i] == expected[i], decoded[i] + " instead of " + expected[i]);
    }
    fuzz::Require(decoded.size() == expected.size(), "more records than lines");
    return 0;
}
