#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "corpus.h"

// The recorder as the benchmarks drive it. It is made of singletons, and a code table that was
// loaded once stays: what is measured without tables comes before what is measured with them.
namespace bench {

// Empties buffer and dictionary and sets the limit, in MiB.
void ResetRecorder(unsigned long long limit_mib = 10);

void Feed(std::vector<std::string>& lines);

// Feeds the lines again and again, at later times, until the buffer is nine tenths full, which is
// the least that a full one holds.
void FeedUntilFull(Corpus& corpus);

// The dump image.
std::vector<unsigned char> Snapshot(bool consume);

// Records in the buffer: their bytes in the dump image.
size_t RecordBytes();

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

// Each tag's texts that occur at least twice in the lines, the most frequent first.
std::vector<CodedText> Train(const std::vector<std::string>& lines);

// `count` texts of the tag that occur in no line.
std::vector<CodedText> UnseenTexts(const std::string& tag, size_t count);

// Writes one database with codes of one to three bytes, the shortest first.
void WriteCodeTable(const std::filesystem::path& path, const std::vector<std::string>& texts);

// Writes a database for each tag and loads it.
void LoadCodeTables(const std::vector<CodedText>& texts);

}  // namespace bench
