#include <malloc.h>
#include <sqlite3.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <stdexcept>

#include "CDBOperations.h"
#include "memory.h"
#include "recorder.h"
#include "suites.h"

namespace bench {

namespace {

constexpr const char* kTag = "UNUSED";

struct Database {
    TemporaryFolder folder;
    std::filesystem::path path = folder.Path() / "table.db";
    size_t rows = 0;
    size_t bytes = 0;  // of texts and codes
};

// The most that was in memory since the call before.
size_t TakePeakBytes() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line) && line.find("VmHWM:") != 0) {
    }
    std::ofstream("/proc/self/clear_refs") << "5";
    return line.empty() ? 0 : std::stoull(line.substr(6)) << 10;
}

std::shared_ptr<Database> Write(size_t rows, bool is_sorted) {
    std::vector<std::string> texts;
    for (CodedText& text : UnseenTexts(kTag, rows)) {
        texts.push_back(std::move(text.text));
    }
    if (!is_sorted) {
        std::shuffle(texts.begin(), texts.end(), std::mt19937_64(1));
    }
    auto database = std::make_shared<Database>();
    database->rows = rows;
    WriteCodeTable(database->path, texts);
    for (size_t i = 0; i < rows; ++i) {
        // The codes that are written: all of one byte, all of two, and of three.
        database->bytes += texts[i].size() + (i < 256 ? 1 : i < 256 + 65536 ? 2 : 3);
    }
    return database;
}

void LoadTable(const Database& database) {
    CDBOperations* const tables = CDBOperations::Instance();
    if (!tables->m_OpenDB(database.path.c_str()) ||
        !tables->m_GetAllHuffmanCode("HuffmanCode", kTag) || !tables->m_CloseDB()) {
        throw std::runtime_error(database.path.string() + ": cannot be loaded");
    }
}

// As at a start: there is no table of the tag that the loaded one would have to replace.
void Load(benchmark::State& state, const Database& database, const Database& smallest) {
    LoadTable(smallest);
    malloc_trim(0);
    const auto before = static_cast<double>(ResidentBytes());
    double kept = 0;
    double peak = 0;
    static_cast<void>(TakePeakBytes());
    while (state.KeepRunning()) {
        LoadTable(database);
        state.PauseTiming();
        kept = std::max(kept, static_cast<double>(ResidentBytes()) - before);
        peak = std::max(peak, static_cast<double>(TakePeakBytes()) - before);
        LoadTable(smallest);
        malloc_trim(0);
        static_cast<void>(TakePeakBytes());
        state.ResumeTiming();
    }
    state.counters["rows/s"] = benchmark::Counter(static_cast<double>(database.rows),
                                                  benchmark::Counter::kIsIterationInvariantRate);
    const auto bytes = static_cast<double>(database.bytes);
    const auto rows = static_cast<double>(database.rows);
    state.counters["B/row beyond text and code"] = (kept - bytes) / rows;
    state.counters["B/row while loading"] = (peak - bytes) / rows;
}

void Step(benchmark::State& state, const Database& database) {
    while (state.KeepRunning()) {
        sqlite3* handle = nullptr;
        sqlite3_stmt* statement = nullptr;
        if (sqlite3_open(database.path.c_str(), &handle) != SQLITE_OK ||
            sqlite3_prepare_v2(handle, "select log, huffmancode from HuffmanCode", -1, &statement,
                               nullptr) != SQLITE_OK) {
            throw std::runtime_error(sqlite3_errmsg(handle));
        }
        size_t rows = 0;
        while (sqlite3_step(statement) == SQLITE_ROW) {
            ++rows;
        }
        benchmark::DoNotOptimize(rows);
        sqlite3_finalize(statement);
        sqlite3_close(handle);
    }
    state.counters["rows/s"] = benchmark::Counter(static_cast<double>(database.rows),
                                                  benchmark::Counter::kIsIterationInvariantRate);
}

}  // namespace

void AddStart() {
    const auto smallest = Write(1, true);
    for (const size_t rows : std::initializer_list<size_t>{1000, 100000, 1000000}) {
        const std::string name = "start/" + std::to_string(rows) + " rows/";
        const auto sorted = Write(rows, true);
        const auto shuffled = Write(rows, false);
        AddTimed(name + "sqlite3_step",
                 [sorted](benchmark::State& state) { Step(state, *sorted); });
        AddTimed(name + "recorder",
                 [=](benchmark::State& state) { Load(state, *sorted, *smallest); });
        AddTimed(name + "recorder, rows in no order",
                 [=](benchmark::State& state) { Load(state, *shuffled, *smallest); });
    }
}

}  // namespace bench
