#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "commands/faults.h"
#include "dump/dump_reader.h"
#include "io/input.h"

namespace trelvo {

// A dump whose head could be read.
struct DumpFile {
    std::string path;
    std::string name;  // for people
    std::string version;
    int32_t last_log_time = 0;  // ms
    int64_t written_ns = 0;     // since 1970
    std::string boot;           // as the first clock line tells
    int64_t clock_ms = 0;       // since boot, of that line
};

// The dumps that a command was given.
class DumpFiles {
public:
    using HeadObserver = std::function<void(const DumpReader&)>;

    // The observer is told of bytes that are read.
    explicit DumpFiles(FileInput::Observer observer = {}) : observer_(std::move(observer)) {}

    // What can be read only once, a pipe or standard input, is the same bytes for everybody who
    // opens it. Throws as OpenInput does.
    [[nodiscard]] std::unique_ptr<Input> Open(const std::string& path);

    // Those of the files that are dumps, in the order in which they were written; `one_boot`: by
    // log time alone. What is wrong with the others is told. `seen` is given each head.
    [[nodiscard]] std::vector<DumpFile> InOrder(const std::vector<std::string>& paths,
                                                bool one_boot, Faults& faults,
                                                const HeadObserver& seen = {});

private:
    FileInput::Observer observer_;
    std::map<std::string, std::shared_ptr<Input>> shared_;  // pipes and standard input
};

}  // namespace trelvo
