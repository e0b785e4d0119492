#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "io/input.h"

namespace trelvo {

// The lines of a text without their line feeds; one that is longer than kLongest comes in pieces.
class TextLines {
public:
    explicit TextLines(Input& input) : input_(input), buffer_(kFirstBuffer) {}

    // The view lives until the next call.
    [[nodiscard]] bool Next(std::string_view& line) {
        size_t searched = 0;
        for (;;) {
            const std::string_view rest(buffer_.data() + begin_, end_ - begin_);
            const size_t feed = rest.find('\n', searched);
            if (feed != std::string_view::npos) {
                line = rest.substr(0, feed);
                begin_ += feed + 1;
                is_whole_ = true;
                return true;
            }
            searched = rest.size();
            if (rest.size() >= kLongest || !Fill()) {
                line = {buffer_.data() + begin_, end_ - begin_};
                begin_ = end_;
                is_whole_ = false;
                return !line.empty();
            }
        }
    }

    // Whether the last line ended with a line feed.
    [[nodiscard]] bool IsWhole() const { return is_whole_; }

    // Takes so many bytes, whatever they are, and keeps the first ones. False where there are
    // fewer.
    [[nodiscard]] bool Take(uint64_t count, size_t keep, std::string& kept) {
        kept.clear();
        while (count > 0) {
            if (begin_ == end_ && !Fill()) {
                return false;
            }
            const auto piece = static_cast<size_t>(std::min<uint64_t>(count, end_ - begin_));
            kept.append(buffer_.data() + begin_, std::min(piece, keep - kept.size()));
            begin_ += piece;
            count -= piece;
        }
        return true;
    }

private:
    static constexpr size_t kLongest = size_t{16} << 20;
    static constexpr size_t kFirstBuffer = size_t{256} << 10;

    [[nodiscard]] bool Fill() {
        std::copy(buffer_.begin() + static_cast<ptrdiff_t>(begin_),
                  buffer_.begin() + static_cast<ptrdiff_t>(end_), buffer_.begin());
        end_ -= begin_;
        begin_ = 0;
        if (end_ == buffer_.size()) {
            buffer_.resize(2 * buffer_.size());
        }
        const size_t count = input_.Read(buffer_.data() + end_, buffer_.size() - end_);
        end_ += count;
        return count != 0;
    }

    Input& input_;
    std::vector<char> buffer_;
    size_t begin_ = 0;  // of what was not handed out yet
    size_t end_ = 0;
    bool is_whole_ = false;
};

}  // namespace trelvo
