#include "LineReader.h"

namespace {

constexpr size_t kBlock = 65536;  // bytes

}  // namespace

LineReader::LineReader(std::istream& stream) : stream_(stream), block_(kBlock) {}

int LineReader::Skip(int count) {
    int skipped = 0;
    bool isInLine = false;
    while (skipped < count && (!rest_.empty() || Fill())) {
        const size_t end = rest_.find('\n');
        isInLine = end == std::string_view::npos;
        rest_.remove_prefix(isInLine ? rest_.size() : end + 1);
        skipped += isInLine ? 0 : 1;
    }
    return skipped + (isInLine ? 1 : 0);
}

bool LineReader::Next(std::string& line) {
    if (rest_.empty() && !Fill()) {
        return false;
    }
    line.clear();
    do {
        const size_t end = rest_.find('\n');
        line.append(rest_.substr(0, end));
        if (end != std::string_view::npos) {
            rest_.remove_prefix(end + 1);
            return true;
        }
        rest_ = {};
    } while (Fill());
    return true;
}

bool LineReader::Fill() {
    stream_.read(block_.data(), static_cast<std::streamsize>(block_.size()));
    rest_ = std::string_view(block_.data(), static_cast<size_t>(stream_.gcount()));
    return !rest_.empty();
}
