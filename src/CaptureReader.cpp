#include "CaptureReader.h"

#include <unistd.h>

#include <boost/chrono/duration.hpp>
#include <boost/thread/thread.hpp>
#include <cstdio>
#include <fstream>

#include "CatchUp.h"
#include "FixedPaths.h"
#include "LineReader.h"
#include "Log.h"

namespace capture {

namespace {

// A capture file and the name that messages give it.
struct CaptureFile {
    const char* path;
    const char* name;
};

constexpr CaptureFile kCurrent{paths::kCaptureFile, "TRELVO_BUFFER"};
constexpr CaptureFile kRotated{paths::kRotatedCaptureFile, "TRELVO_BUFFER.1"};
constexpr CaptureFile kBootCurrent{paths::kBootCaptureFile, "TRELVO_BOOT_BUFFER"};
constexpr CaptureFile kBootRotated{paths::kRotatedBootCaptureFile, "TRELVO_BOOT_BUFFER_1"};

constexpr boost::chrono::milliseconds kRotationPause(100);
constexpr boost::chrono::milliseconds kPassPause(1000);

bool Exists(const CaptureFile& file) {
    return access(file.path, F_OK) == 0;
}

std::ifstream Open(const CaptureFile& file) {
    std::ifstream stream(file.path);
    if (!stream.is_open()) {
        throw std::string(file.name) + " could not be opened";
    }
    return stream;
}

void DrainBootFile(const CaptureFile& file, const LineHandler& handler) {
    if (!Exists(file)) {
        TR_LOGI("%s could not be opened", file.name);
        return;
    }
    std::ifstream stream = Open(file);
    LineReader reader(stream);
    std::string line;
    int count = 0;
    while (reader.Next(line)) {
        handler(line);
        ++count;
    }
    TR_LOGI("Lines Read from %s: [%d]", file.path, count);
    TR_LOGI("%s is finished", file.name);
    stream.close();
    static_cast<void>(std::remove(file.path));
}

void DrainRotated(int processed, const LineHandler& handler) {
    std::ifstream rotated = Open(kRotated);
    LineReader reader(rotated);
    std::string line;
    int handedOn = 0;
    // The count that the new current file has already moved in this pass: where that file has
    // outgrown the old one's count, as many of the old one's lines are passed over.
    static_cast<void>(reader.Skip(processed));
    while (reader.Next(line)) {
        handler(line);
        ++handedOn;
    }
    // Only the lines handed on, where the current file's message counts all that were read.
    TR_LOGI("Lines Read from %s: [%d]", kRotated.path, handedOn);
    rotated.close();
    boost::this_thread::sleep_for(kRotationPause);
    static_cast<void>(std::remove(kRotated.path));
}

}  // namespace

void DrainBootFiles(const LineHandler& handler) {
    TR_LOGI("Start reading data from: %s", kBootCurrent.path);
    // The older file comes first, since the parser refuses lines whose time runs backwards.
    TR_LOGI("Going to Read TRELVO_BOOT_BUFFER_1 first");
    DrainBootFile(kBootRotated, handler);
    TR_LOGI("Going to Read TRELVO_BOOT_BUFFER");
    DrainBootFile(kBootCurrent, handler);
}

namespace {

// For as long as it lives, dumps may wait for the reader.
struct Following {
    Following() { CatchUp::Instance().SetFollowing(true); }
    ~Following() { CatchUp::Instance().SetFollowing(false); }
    Following(const Following&) = delete;
    Following& operator=(const Following&) = delete;
};

}  // namespace

void Follow(const LineHandler& handler, const std::function<void()>& afterPass) {
    TR_LOGI("Start reading data from: %s", kCurrent.path);
    const Following following;
    int processed = 0;
    std::string line;
    for (;;) {
        std::ifstream current = Open(kCurrent);
        LineReader reader(current);
        int linesInPass = reader.Skip(processed);
        while (reader.Next(line)) {
            ++linesInPass;
            handler(line);
            ++processed;
        }
        TR_LOGI("Lines Read from %s: [%d]", kCurrent.path, linesInPass);

        // A drained file is deleted, so one that exists means a rotation since the last pass.
        const bool isRotated = Exists(kRotated);
        if (isRotated) {
            TR_LOGI("buffer to be switched to TRELVO_BUFFER.1");
            current.close();
            boost::this_thread::sleep_for(kRotationPause);
            DrainRotated(processed, handler);
            processed = 0;
        }
        afterPass();
        // After a rotation the current file is read from its first line, in the next pass.
        CatchUp::Instance().Pause(kPassPause, !isRotated);
    }
}

}  // namespace capture
