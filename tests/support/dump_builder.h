#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "io/input.h"

namespace test_support {

// The bytes of pairs of digits, with blanks between them or not.
inline std::string FromHex(std::string text) {
    text.erase(std::remove(text.begin(), text.end(), ' '), text.end());
    std::string bytes;
    for (size_t i = 0; i < text.size(); i += 2) {
        bytes += static_cast<char>(std::stoi(text.substr(i, 2), nullptr, 16));
    }
    return bytes;
}

// A length, a time or an index of the format.
inline std::string Leb(int64_t value) {
    std::string bytes;
    for (; value < -64 || value >= 64; value >>= 7) {
        bytes += static_cast<char>(value | 0x80);
    }
    return bytes + static_cast<char>(value & 0x7F);
}

// A dump as the service writes it, a line at a time. Sources, at most 15, are "TAG,PID" with TID
// 11, or "TAG,PID/TID".
class DumpBuilder {
public:
    explicit DumpBuilder(std::string version = {}) : version_(std::move(version)) {}

    // `delta_ms` after the line before; level D, I, W, E or F.
    DumpBuilder& Line(int64_t delta_ms, std::string_view text, const std::string& source = "A,10",
                      char level = 'I') {
        const auto index = indexes_.try_emplace(source, indexes_.size() + 1).first->second;
        const size_t rank = std::string_view("DIWEF").find(level);
        records_ += Leb(delta_ms);
        records_ += static_cast<char>(rank << 5 | index);
        records_ += Leb(static_cast<int64_t>(text.size()));
        records_ += text;
        return *this;
    }

    // The newest line of the buffer was logged at `last_ms`.
    [[nodiscard]] std::string Image(int64_t last_ms) const {
        std::map<std::string, std::string> pairs;  // by process
        for (const auto& [source, index] : indexes_) {
            const size_t end = std::min(source.find('/'), source.size());
            pairs[source.substr(0, end)] +=
                Leb(end == source.size() ? 11 : std::stoi(source.substr(end + 1))) +
                Leb(static_cast<int64_t>(index));
        }
        std::string entries;
        for (const auto& [process, threads] : pairs) {
            entries += Leb(static_cast<int64_t>(process.size())) + process +
                       Leb(static_cast<int64_t>(threads.size())) + threads;
        }
        return Leb(static_cast<int64_t>(version_.size())) + version_ +
               Leb(static_cast<int64_t>(entries.size())) + entries + Leb(last_ms) + records_;
    }

private:
    std::string version_;
    std::map<std::string, size_t> indexes_;
    std::string records_;
};

// Bytes in memory, given a few at a time, so that every field crosses the end of a buffer
// somewhere.
class MemoryInput : public trelvo::Input {
public:
    explicit MemoryInput(std::string bytes) : bytes_(std::move(bytes)) {}
    size_t Read(char* data, size_t size) override {
        const size_t count = bytes_.copy(data, std::min<size_t>(size, 3), position_);
        position_ += count;
        return count;
    }
    void Seek(uint64_t offset) override { position_ = static_cast<size_t>(offset); }

private:
    std::string bytes_;
    size_t position_ = 0;
};

}  // namespace test_support
