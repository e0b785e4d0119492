#include <cstdlib>
#include <fstream>
#include <memory>
#include <stdexcept>

#include "patterns/pattern_finder.h"
#include "recorder.h"
#include "suites.h"
#include "support/image.h"

namespace bench {

using namespace trelvo;

namespace {

struct Files {
    TemporaryFolder folder;
    std::string text = folder.Path() / "capture";
    std::string compressed = text + ".zst";
    std::string dump = folder.Path() / "trelvo.dump";
    std::string policy = folder.Path() / "policy";
    size_t lines = 500000;
    size_t text_bytes = 0;
    size_t dump_bytes = 0;
};

void Run(const std::string& command) {
    if (std::system(command.c_str()) != 0) {
        throw std::runtime_error(command + ": failed");
    }
}

// 500,000 lines as text, the same as text in zstd 3, and as a dump.
std::shared_ptr<Files> Write(const Corpus& corpus) {
    auto files = std::make_shared<Files>();
    std::ofstream text(files->text);
    std::ofstream dump(files->dump);
    Corpus fed(corpus);
    for (size_t i = 0; i < files->lines; ++i) {
        if (i != 0 && i % fed.Size() == 0) {
            fed.Advance();
        }
        const std::string_view line = fed.Line(i % fed.Size());
        text << line << '\n';
        files->text_bytes += line.size() + 1;
    }
    const Counters written = InChild([&] {
        SetLimit(1024, Count::kRecords);
        Corpus recorded(corpus);
        Feeder(recorded).Feed(files->lines);
        const test_support::Bytes image = test_support::Snapshot(true);
        dump.write(reinterpret_cast<const char*>(image.data()),
                   static_cast<std::streamsize>(image.size()));
        dump.flush();
        return Counters{{"bytes", dump ? static_cast<double>(image.size()) : 0}};
    });
    files->dump_bytes = static_cast<size_t>(written.at("bytes"));
    if (!text.flush() || files->dump_bytes == 0) {
        throw std::runtime_error(files->folder.Path().string() + ": cannot be written");
    }
    Run("zstd -q -3 " + files->text);
    return files;
}

// Programs as a user runs them; another program takes the output, since grep would not produce it
// for /dev/null.
void AddProgram(const std::string& name, const std::string& command,
                const std::shared_ptr<Files>& files, size_t bytes) {
    AddTimed(name, [=](benchmark::State& state) {
        while (state.KeepRunning()) {
            Run(command);
        }
        CountRates(state, files->lines, bytes);
    })->UseRealTime();
}

}  // namespace

void AddTools(Subject& subject) {
    const auto files = Write(subject.corpus);
    const std::string tool = TRELVO_BIN_DIR "/trelvoctl";
    AddProgram("tools/decode", tool + " decode " + files->dump + " | cat >/dev/null", files,
               files->dump_bytes);
    // Grouping alone, by processor time: the messages without the writer's prefix.
    AddTimed("tools/patterns, grouping", [&subject](benchmark::State& state) {
        size_t bytes = 0;
        while (state.KeepRunning()) {
            PatternFinder finder;
            bytes = 0;
            for (size_t i = 0; i < subject.corpus.Size(); ++i) {
                const std::string_view line = subject.corpus.Line(i);
                const size_t prefix = line.find(" > ");
                const std::string_view message =
                    prefix == std::string_view::npos ? line : line.substr(prefix + 3);
                benchmark::DoNotOptimize(finder.Take(message));
                bytes += message.size();
            }
            finder.Finish();
        }
        CountRates(state, subject.corpus.Size(), bytes);
    });
    AddProgram("tools/patterns", tool + " patterns " + files->dump + " | cat >/dev/null", files,
               files->dump_bytes);
    AddProgram("tools/zstdcat | grep",
               "zstdcat " + files->compressed + " | grep -F ' > ' | cat >/dev/null", files,
               files->text_bytes);
    AddProgram("tools/train",
               tool + " train --force --policy-version 1 -o " + files->policy + " " + files->text +
                   " >/dev/null",
               files, files->text_bytes);
}

}  // namespace bench
