#include <fstream>
#include <memory>
#include <stdexcept>

#include "LineReader.h"
#include "recorder.h"
#include "suites.h"

namespace bench {

namespace {

struct CaptureFile {
    TemporaryFolder folder;
    std::filesystem::path path = folder.Path() / "RQB_Buffer";
    int lines = 0;
    size_t bytes = 0;
};

std::shared_ptr<CaptureFile> WriteCapture(const Corpus& corpus, size_t mib) {
    auto capture = std::make_shared<CaptureFile>();
    std::ofstream file(capture->path);
    for (size_t i = 0; capture->bytes < mib << 20; ++i) {
        const std::string_view line = corpus.Line(i % corpus.Size());
        file << line << '\n';
        capture->bytes += line.size() + 1;
        ++capture->lines;
    }
    if (!file.flush()) {
        throw std::runtime_error(capture->path.string() + ": cannot be written");
    }
    return capture;
}

// One pass as the follower makes it, without what becomes of the lines that it hands on.
void Pass(benchmark::State& state, const CaptureFile& capture, int percent) {
    const int processed = static_cast<int>(int64_t{capture.lines} * percent / 100);
    while (state.KeepRunning()) {
        std::ifstream stream(capture.path);
        LineReader reader(stream);
        std::string line;
        benchmark::DoNotOptimize(reader.Skip(processed));
        while (reader.Next(line)) {
            benchmark::DoNotOptimize(line.data());
        }
    }
    CountRates(state, static_cast<size_t>(capture.lines), capture.bytes);
}

void CountWithWc(benchmark::State& state, const CaptureFile& capture) {
    const std::string command = "wc -l " + capture.path.string() + " >/dev/null";
    while (state.KeepRunning()) {
        if (std::system(command.c_str()) != 0) {
            state.SkipWithError("wc failed");
        }
    }
    CountRates(state, static_cast<size_t>(capture.lines), capture.bytes);
}

}  // namespace

void AddReader(Subject& subject) {
    for (const size_t mib : std::initializer_list<size_t>{1, 10, 50}) {
        const auto capture = WriteCapture(subject.corpus, mib);
        const std::string name = "reader/" + std::to_string(mib) + " MiB/";
        for (const int percent : {0, 50, 100}) {
            AddTimed(name + std::to_string(percent) + " % handed on", [capture, percent](
                                                                          benchmark::State& state) {
                Pass(state, *capture, percent);
            })->UseRealTime();
        }
        AddTimed(name + "wc -l", [capture](benchmark::State& state) {
            CountWithWc(state, *capture);
        })->UseRealTime();
    }
}

}  // namespace bench
