// Journal entries, formatted by dlogutil, recorded by the service, decoded by trelvoctl: whoever
// logs what, the recorder never stops, every line that is captured is one that it takes, and what
// comes out has the journal's tag, ids and text.
//
// Each line of the input is an entry: a letter for the time since the one before, then fields
// "<letter of the field in kFieldNames, from a on><value>" that end at tabs.

#include <algorithm>
#include <cctype>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "CDataProvider.h"
#include "dlogutil/journal_entry.h"
#include "support/fuzz_support.h"

namespace {

dlogutil::Fields ReadFields(const std::string& entry) {
    dlogutil::Fields fields;
    std::istringstream text(entry);
    for (std::string field; std::getline(text, field, '\t');) {
        if (!field.empty()) {
            const auto number = static_cast<unsigned char>(field[0] - 'a') % dlogutil::kFieldCount;
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

// The first of the fields that is a number from 0 to the largest int, of at most ten digits.
int Number(const dlogutil::Fields& fields, std::initializer_list<dlogutil::Field> candidates) {
    for (const dlogutil::Field field : candidates) {
        const std::string text(fields[field]);
        if (!text.empty() && text.size() <= 10 &&
            text.find_first_not_of("0123456789") == std::string::npos &&
            std::stol(text) <= std::numeric_limits<int>::max()) {
            return std::stoi(text);
        }
    }
    return 0;
}

// The tag of the journal, but for bytes that became '_'.
bool IsTagOf(const dlogutil::Fields& fields, const std::string& tag) {
    std::string wanted;
    for (const dlogutil::Field field : {dlogutil::kIdentifier, dlogutil::kComm}) {
        const std::string name(fields[field].substr(0, 128));
        const size_t begin = std::min(name.find_first_not_of(' '), name.size());
        if (wanted.empty()) {
            wanted = name.substr(begin, name.find_last_not_of(' ') + 1 - begin);
        }
    }
    wanted = wanted.empty() ? "unknown" : wanted;
    return std::equal(tag.begin(), tag.end(), wanted.begin(), wanted.end(),
                      [](char is, char was) { return is == was || is == '_'; });
}

// The lines of the message that are not blank, without their ends.
std::vector<std::string> Texts(const dlogutil::Fields& fields) {
    std::vector<std::string> texts;
    std::istringstream message{std::string(fields[dlogutil::kMessage])};
    for (std::string text; std::getline(message, text);) {
        if (!text.empty() && text.back() == '\r') {
            text.pop_back();
        }
        if (text.find_first_not_of(" \t") != std::string::npos) {
            texts.push_back(text);
        }
    }
    return texts;
}

// What must come out of a line: "level/tag(P pid, T tid): message". Empty where the writer promised
// a prefix of its own and wrote none: such a line is not recorded.
std::string Expected(const dlogutil::Fields& fields, const std::string& written) {
    const std::string line = Trimmed(written);
    const size_t arrow = line.find(" > ");
    if (arrow == std::string::npos) {
        const std::string_view level = fields[dlogutil::kDlogLevel];
        fuzz::Require(level.size() == 1 && std::strchr("VDIWEFS", level[0]) != nullptr,
                      "no prefix: " + line);
        return "";
    }
    const char level = dlogutil::LevelOf(fields);
    const std::string tag = dlogutil::TagOf(fields);
    fuzz::Require(IsTagOf(fields, tag), "another tag: " + tag);
    using namespace dlogutil;
    return std::string(1, std::string("IWEF").find(level) != std::string::npos ? level : 'D') +
           "/" + tag + "(P " + std::to_string(Number(fields, {kPid, kSyslogPid})) + ", T " +
           std::to_string(Number(fields, {kTid, kPid, kSyslogPid})) +
           "): " + line.substr(arrow + 3);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool prepared = (CDataProvider::Instance()->SetBufferSize(1 << 20), true);
    static_cast<void>(prepared);
    std::vector<std::string> expected;
    std::istringstream text(std::string(data, data + size));
    uint64_t usec = 1000000;
    for (std::string entry; std::getline(text, entry);) {
        usec += entry.empty() ? 0 : static_cast<uint64_t>(entry[0] & 31) * 1000;
        const dlogutil::Fields fields = ReadFields(entry.substr(std::min<size_t>(entry.size(), 1)));
        std::string lines;
        dlogutil::AppendLines(fields, dlogutil::TagOf(fields), usec, lines);
        fuzz::Require(lines.empty() || lines.back() == '\n', "half a line");
        const std::vector<std::string> texts = Texts(fields);
        size_t count = 0;
        std::istringstream written(lines);
        for (std::string line; std::getline(written, line); ++count) {
            // Behind the last that are written stands how many were left out.
            const std::string logged =
                count < dlogutil::kMaxLines ? texts.at(count) : "lines of this entry left out";
            fuzz::Require(line.find(logged) != std::string::npos, "lacks " + logged);
            if (std::string shown = Expected(fields, line); !shown.empty()) {
                expected.push_back(std::move(shown));
            }
            const std::string thrown = fuzz::Feed(line);
            fuzz::Require(thrown.empty(), thrown + " at " + line);
        }
        fuzz::Require(count == std::min(texts.size(), dlogutil::kMaxLines + 1),
                      "lines are missing");
    }
    const std::vector<std::string> decoded = fuzz::Decode(fuzz::Snapshot(true));
    for (size_t i = 0; i < expected.size(); ++i) {
        fuzz::Require(i < decoded.size(), "lacks " + expected[i]);
        fuzz::Require(decoded[i] == expected[i], decoded[i] + " instead of " + expected[i]);
    }
    fuzz::Require(decoded.size() == expected.size(), "more records than lines");
    return 0;
}
