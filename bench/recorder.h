#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "corpus.h"

// The recorder as the benchmarks drive it. It is made of singletons: what measures it does so in a
// child process of its own.
namespace bench {

// What the recorder's limit counts.
enum class Count { kRecords, kMemory };

// Has the recorder's log messages counted, which lock_watch.h and DumpWriter need. REQUIRES:
// nothing was recorded yet.
void CountLogMessages();

// Sets the limit of the history. REQUIRES: nothing was recorded yet.
void SetLimit(size_t mib, Count count);

// Records in the history, and bytes of it as a limit of memory counts them.
size_t RecordCount();
size_t CountedMemory();

// Has the recorder encode one line, which it may change.
void FeedLine(std::string& line);

// Feeds the corpus line by line, each in a string of its own as the reader has it, and begins again
// at later times when it is at the end.
class Feeder {
public:
    using Sink = std::function<void(std::string&)>;

    explicit Feeder(Corpus& corpus, Sink sink = FeedLine)
        : corpus_(corpus), sink_(std::move(sink)) {}

    void Feed(size_t lines);
    // Until the recorder drops records, which is found out to 100 lines.
    void FeedUntilFull();
    // Goes to the first line.
    void Rewind();

private:
    Corpus& corpus_;
    Sink sink_;
    size_t next_ = 0;
    std::string line_;
};

// Has dumps taken by the recorder's own dump writer, in a mount namespace of its own, where the
// folders of dumps are empty and in memory.
class DumpWriter {
public:
    DumpWriter();

    // Has another thread ask for a dump, so that this one goes on; one that consumes the history
    // goes to the collecting service. REQUIRES: none is being taken.
    void Request(bool consume);
    // The dump that was asked for is complete.
    [[nodiscard]] bool IsComplete() const;
    // Waits for the thread that asked and removes the dumps.
    void Finish();

private:
    std::thread requester_;
    size_t wanted_ = 0;
};

// Has `trelvoctl train` make code tables from the lines, and the recorder load them as at its
// start. Enters a mount namespace of its own, where the policy's folder is.
void LoadTrainedTables(const std::vector<std::string>& lines);

// A folder that is removed at the end.
class TemporaryFolder {
public:
    TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder();

    const std::filesystem::path& Path() const { return path_; }

private:
    std::filesystem::path path_;
};

struct CodedText {
    std::string tag;
    std::string text;
};

// `count` texts of the tag that occur in no line.
std::vector<CodedText> UnseenTexts(const std::string& tag, size_t count);

// Writes one database with codes of one to three bytes, the shortest first, whatever they say.
void WriteCodeTable(const std::filesystem::path& path, const std::vector<std::string>& texts);

}  // namespace bench
