#include "support/line_model.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

namespace test_support {
namespace {

const std::string kSpace = " \t\n\v\f\r";

std::string Trimmed(std::string text, const std::string& set) {
    while (!text.empty() && set.find(text.back()) != std::string::npos) {
        text.pop_back();
    }
    while (!text.empty() && set.find(text.front()) != std::string::npos) {
        text.erase(0, 1);
    }
    return text;
}

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

bool IsLogLine(const std::string& line) {
    if (!Contains(line, "):") || !Contains(line, " > ")) {
        return false;
    }
    const std::string prefix = line.substr(0, line.find(" > "));
    return Contains(prefix, "/") && Contains(line.substr(0, prefix.find('/')), " ");
}

int Milliseconds(const std::string& seconds) {
    const float milliseconds = std::stof(seconds) * 1000.0F;
    if (std::isnan(milliseconds)) {
        return 0;
    }
    using Int = std::numeric_limits<int>;
    return static_cast<int>(std::clamp<double>(milliseconds, Int::min(), Int::max()));
}

int Number(const std::string& text) {
    return std::stoi(Trimmed(text, kSpace));
}

// As many groups of 7 bits as hold the value and its sign.
void AppendLeb128(int64_t value, Bytes& out) {
    int groups = 1;
    while (value < -(int64_t{1} << (7 * groups - 1)) || value >= int64_t{1} << (7 * groups - 1)) {
        ++groups;
    }
    for (int group = 0; group < groups; ++group) {
        const auto bits = static_cast<unsigned char>((value >> (7 * group)) & 127);
        out.push_back(static_cast<unsigned char>(group + 1 < groups ? bits + 128 : bits));
    }
}

void AppendCounted(const std::string& text, Bytes& out) {
    AppendLeb128(static_cast<int64_t>(text.size()), out);
    out.insert(out.end(), text.begin(), text.end());
}

void AppendHeader(char level, int index, Bytes& out) {
    const std::string levels = "IWEF";
    const size_t code = levels.find(level) + 1;  // npos + 1 is 0
    std::vector<int> groups;                     // of 7 bits, the lowest first
    for (; index >= 16; index /= 128) {
        groups.push_back(index % 128);
    }
    out.push_back(static_cast<unsigned char>(code * 32 + (groups.empty() ? 0 : 16) +
                                             static_cast<size_t>(index)));
    for (; !groups.empty(); groups.pop_back()) {
        out.push_back(static_cast<unsigned char>(groups.back() + (groups.size() > 1 ? 128 : 0)));
    }
}

}  // namespace

std::string LineModel::Feed(const std::string& line) {
    const std::string stripped = Trimmed(line, " \t");
    if (stripped.empty() || !IsLogLine(stripped)) {
        return "";
    }
    try {
        Encode(stripped);
        return "";
    } catch (const std::invalid_argument& error) {
        return std::string("invalid_argument: ") + error.what();
    } catch (const std::out_of_range& error) {
        return std::string("out_of_range: ") + error.what();
    }
}

// A delimiter that is not there is at npos, and the arithmetic on that is part of the rules.
std::optional<LineModel::Line> LineModel::Split(std::string line, int& last_time) {
    line.erase(0, std::min(line.find_first_not_of(kSpace), line.size()));
    const int time = Milliseconds(line.substr(0, line.find(' ')));
    const int64_t delta = last_time == 0 ? 0 : int64_t{time} - last_time;
    if (delta < 0) {
        return {};
    }
    last_time = time;
    Line out;
    out.delta = static_cast<int>(std::min<int64_t>(delta, std::numeric_limits<int>::max()));
    const std::string from_level = line.substr(line.find(' ') + 1);
    out.level = from_level.empty() ? '\0' : from_level[0];
    const size_t slash = line.find('/');
    const size_t process = line.find("(P");
    const size_t thread = line.find(", T");
    const size_t close = line.find("):");
    out.tag = Trimmed(line.substr(slash + 1, process - slash - 1), kSpace);
    out.pid = Number(line.substr(process + 2, thread - process - 2));
    out.tid = Number(line.substr(thread + 3, close - thread - 3));
    out.message = line.substr(line.find(" > ") + 3);
    out.message.erase(std::remove(out.message.begin(), out.message.end(), '\n'), out.message.end());
    return out;
}

void LineModel::Encode(const std::string& text) {
    const std::optional<Line> line = Split(text, last_time_);
    if (!line) {
        return;
    }
    int& index = dictionary_[line->tag + "," + std::to_string(line->pid)][line->tid];
    if (index == 0) {
        index = ++indexes_;
    }
    Bytes record;
    AppendLeb128(line->delta, record);
    AppendHeader(line->level, index, record);
    const auto code = codes_.find({line->tag, line->message});
    AppendCounted(code == codes_.end() ? line->message
                                       : std::string(code->second.begin(), code->second.end()),
                  record);
    records_.push_back(record);
    size_t total = 0;
    for (const Bytes& kept : records_) {
        total += kept.size();
    }
    if (total >= limit_bytes_) {
        records_.erase(records_.begin(),
                       records_.begin() + static_cast<std::ptrdiff_t>(records_.size() / 10));
    }
}

Bytes LineModel::Dump() const {
    std::string entries;
    for (const auto& [key, threads] : dictionary_) {
        Bytes pairs;
        for (const auto& [tid, index] : threads) {
            AppendLeb128(tid, pairs);
            AppendLeb128(index, pairs);
        }
        Bytes entry;
        AppendCounted(key, entry);
        AppendCounted(std::string(pairs.begin(), pairs.end()), entry);
        entries.append(entry.begin(), entry.end());
    }
    Bytes image;
    AppendCounted(version_, image);
    AppendCounted(entries, image);
    AppendLeb128(last_time_, image);
    for (const Bytes& record : records_) {
        image.insert(image.end(), record.begin(), record.end());
    }
    return image;
}

}  // namespace test_support
