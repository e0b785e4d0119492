#pragma once

#include <istream>
#include <string>
#include <string_view>
#include <vector>

// Reads a stream line by line, as std::getline does, and passes over lines without making strings
// of them: the follower of the capture reads every file again from its first line in each pass.
//
// Borrows the stream and reads ahead in blocks. What follows the last line feed is a line too.
class LineReader {
public:
    explicit LineReader(std::istream& stream);

    // Passes over `count` lines, or as many as there are. Returns how many.
    int Skip(int count);
    // False, with `line` unchanged, at the end of the stream.
    [[nodiscard]] bool Next(std::string& line);

private:
    // Reads on into the used-up block; false at the end of the stream.
    bool Fill();

    std::istream& stream_;
    std::vector<char> block_;
    std::string_view rest_;  // what was read and not yet taken
};
