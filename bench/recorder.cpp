#include "recorder.h"

#include <sqlite3.h>
#include <stdlib.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include "CDBOperations.h"
#include "CDataDump.h"
#include "CDataProvider.h"
#include "CTREventManager.h"
#include "lock_watch.h"
#include "support/private_namespace.h"
#include "support/process.h"
#include "support/silent_platform.h"

namespace fs = std::filesystem;

namespace bench {

namespace {

constexpr const char* kRequestFolder = "/tmp/dumps";
constexpr const char* kCollectingFolder = "/opt/usr/share/svc-rk/dump";

std::atomic<size_t> completed_dumps = 0;

// The n-th of all codes of one, two and three bytes, in the characters 0 and 1.
std::string CodeText(size_t n) {
    size_t bytes = 1;
    for (size_t count = 256; n >= count; count *= 256) {
        n -= count;
        ++bytes;
    }
    std::string text;
    for (size_t bit = 8 * bytes; bit-- > 0;) {
        text += (n >> bit & 1) != 0 ? '1' : '0';
    }
    return text;
}

void Check(int result, sqlite3* database) {
    if (result != SQLITE_OK && result != SQLITE_DONE) {
        throw std::runtime_error(sqlite3_errmsg(database));
    }
}

}  // namespace

void CountLogMessages() {
    test_support::SetLogHandler([](const char* format, va_list /*arguments*/) {
        CountMessage();
        completed_dumps += std::strstr(format, "Dump to File[") != nullptr ? 1 : 0;
    });
}

void SetLimit(size_t mib, Count count) {
    CDataProvider* const provider = CDataProvider::Instance();
    provider->SetBufferCount(count == Count::kMemory);
    provider->SetHistorySize(mib << 10);
}

size_t RecordCount() {
    return CDataProvider::Instance()->GetRecordCount();
}

size_t CountedMemory() {
    return CDataProvider::Instance()->GetHistoryMemory();
}

void FeedLine(std::string& line) {
    CDataProvider::Instance()->m_GetDataDDP(line);
}

void Feeder::Feed(size_t lines) {
    for (; lines != 0; --lines, ++next_) {
        if (next_ == corpus_.Size()) {
            Rewind();
        }
        line_ = corpus_.Line(next_);
        sink_(line_);
    }
}

void Feeder::FeedUntilFull() {
    constexpr size_t kStep = 100;
    size_t before = 0;
    do {
        before = RecordCount();
        Feed(kStep);
    } while (RecordCount() >= before);
}

void Feeder::Rewind() {
    corpus_.Advance();
    next_ = 0;
}

DumpWriter::DumpWriter() {
    test_support::EnterPrivateNamespace();
    fs::create_directories(kRequestFolder);
    fs::create_directories(kCollectingFolder);
    CDataDump::Instance();
    // A request is lost before the writer's first wait.
    while (completed_dumps == 0) {
        CTREventManager::GetInstance()->RequestDumpOnFile(kRequestFolder);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    Finish();
}

void DumpWriter::Request(bool consume) {
    wanted_ = completed_dumps + 1;
    requester_ = std::thread([consume] {
        if (consume) {
            CTREventManager::GetInstance()->RequestDumpOnFullBuffer();
        } else {
            CTREventManager::GetInstance()->RequestDumpOnFile(kRequestFolder);
        }
    });
}

bool DumpWriter::IsComplete() const {
    return completed_dumps >= wanted_;
}

void DumpWriter::Finish() {
    if (requester_.joinable()) {
        requester_.join();
    }
    for (const char* folder : {kRequestFolder, kCollectingFolder}) {
        fs::remove_all(folder);
        fs::create_directory(folder);
    }
}

void LoadTrainedTables(const std::vector<std::string>& lines) {
    test_support::EnterPrivateNamespace();
    const fs::path folder = "/opt/usr/share/Trelvo";  // where the recorder looks for them
    const fs::path log = "/tmp/other.log";
    fs::create_directories(folder);
    std::ofstream file(log);
    for (const std::string& line : lines) {
        file << line << '\n';
    }
    file.close();
    const test_support::Output output =
        test_support::RunProgram({(TRELVO_BIN_DIR "/trelvoctl"), "train", "--force",
                                  "--policy-version", "1", "-o", folder / "Default", log});
    if (output.status != 0) {
        throw std::runtime_error("trelvoctl train: " + output.err);
    }
    CDBOperations::Instance()->CreateHashMap();
    fs::remove(log);
}

TemporaryFolder::TemporaryFolder() {
    std::string path = fs::temp_directory_path() / "trelvo-bench-XXXXXX";
    if (mkdtemp(path.data()) == nullptr) {
        throw std::runtime_error(path + ": cannot be made");
    }
    path_ = path;
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

std::vector<CodedText> UnseenTexts(const std::string& tag, size_t count) {
    std::vector<CodedText> texts;
    texts.reserve(count);
    char text[96];
    for (size_t i = 0; i < count; ++i) {
        static_cast<void>(std::snprintf(
            text, sizeof text, "request %08zu to the session of the display was answered", i));
        texts.push_back({tag, text});
    }
    return texts;
}

void WriteCodeTable(const fs::path& path, const std::vector<std::string>& texts) {
    sqlite3* database = nullptr;
    Check(sqlite3_open(path.c_str(), &database), database);
    Check(sqlite3_exec(database,
                       "pragma synchronous = off; begin;"
                       "create table HuffmanCode (log text, huffmancode text)",
                       nullptr, nullptr, nullptr),
          database);
    sqlite3_stmt* insert = nullptr;
    Check(
        sqlite3_prepare_v2(database, "insert into HuffmanCode values (?, ?)", -1, &insert, nullptr),
        database);
    for (size_t i = 0; i < texts.size(); ++i) {
        const std::string code = CodeText(i);
        Check(sqlite3_bind_text(insert, 1, texts[i].c_str(), -1, SQLITE_STATIC), database);
        Check(sqlite3_bind_text(insert, 2, code.c_str(), -1, SQLITE_STATIC), database);
        Check(sqlite3_step(insert), database);
        Check(sqlite3_reset(insert), database);
    }
    Check(sqlite3_finalize(insert), database);
    Check(sqlite3_exec(database, "commit", nullptr, nullptr, nullptr), database);
    Check(sqlite3_close(database), database);
}

}  // namespace bench
