#pragma once

#include <functional>
#include <string>

// Reads the capture files, for CDataProvider on the compressor thread.
//
// The capture appends to a current file and, when that is full, renames it to ".1", in place of an
// older one. A file is read from its first line in every pass, and the position in it is the
// number of lines handed on before. What that loses: the lines of a file that was replaced between
// two passes, and lines of the old file where the new one has already outgrown its count. What it
// repeats: those lines of the new file.
//
// Both functions throw a std::string, "<file> could not be opened", and whatever `handler` throws.
namespace capture {

// Takes one line without its line feed.
using LineHandler = std::function<void(std::string& line)>;

// Hands on and deletes the files of the device's boot, the older first; they may be missing.
void DrainBootFiles(const LineHandler& handler);

// Follows the run-time files, a pass a second and a bit, or at once where a dump waits for it;
// calls `afterPass` after each. Never returns normally.
[[noreturn]] void Follow(const LineHandler& handler, const std::function<void()>& afterPass);

}  // namespace capture
