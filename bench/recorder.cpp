#include "recorder.h"

#include <sqlite3.h>
#include <stdlib.h>

#include <algorithm>
#include <map>
#include <stdexcept>

#include "CDBOperations.h"
#include "CDataProvider.h"
#include "CUtility.h"

namespace fs = std::filesystem;

namespace bench {

namespace {

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

void ResetRecorder(unsigned long long limit_mib) {
    static_cast<void>(Snapshot(true));
    CDataProvider::Instance()->SetBufferSize(limit_mib << 10);
}

void Feed(std::vector<std::string>& lines) {
    CDataProvider* const provider = CDataProvider::Instance();
    for (std::string& line : lines) {
        provider->m_GetDataDDP(line);
    }
}

void FeedUntilFull(Corpus& corpus) {
    const size_t limit = CDataProvider::Instance()->GetBufferSize();
    while (RecordBytes() < limit / 10 * 9) {
        if (!corpus.Advance()) {
            ResetRecorder(limit >> 20);
        }
        Feed(corpus.Lines());
    }
}

std::vector<unsigned char> Snapshot(bool consume) {
    std::vector<unsigned char> image;
    CUtility::Instance()->setSelfInitate(consume);
    CDataProvider::Instance()->m_GetCompressedData(image);
    CUtility::Instance()->setSelfInitate(false);
    return image;
}

size_t RecordBytes() {
    std::vector<unsigned char> dictionary;
    CUtility::Instance()->m_DumpLogTagPidTidMap(dictionary, false);
    return Snapshot(false).size() - dictionary.size() - 1;  // and the empty policy version
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

std::vector<CodedText> Train(const std::vector<std::string>& lines) {
    std::map<std::pair<std::string, std::string>, size_t> counts;
    CUtility* const utility = CUtility::Instance();
    ResetRecorder();
    for (const std::string& line : lines) {
        int delta = 0;
        int pid = 0;
        int tid = 0;
        char level = 0;
        std::string tag;
        std::string message;
        const std::string stripped = utility->m_Strip(line);
        if (utility->m_IsDlogLine(stripped) &&
            utility->m_GetLogLineComponents(delta, level, tag, pid, tid, message, stripped)) {
            ++counts[{tag, message}];
        }
    }
    ResetRecorder();
    std::vector<std::pair<size_t, CodedText>> order;
    for (const auto& [text, count] : counts) {
        if (count >= 2) {
            order.push_back({count, {text.first, text.second}});
        }
    }
    std::stable_sort(order.begin(), order.end(),
                     [](const auto& a, const auto& b) { return a.first > b.first; });
    std::vector<CodedText> texts;
    texts.reserve(order.size());
    for (auto& [count, text] : order) {
        texts.push_back(std::move(text));
    }
    return texts;
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

void LoadCodeTables(const std::vector<CodedText>& texts) {
    const TemporaryFolder folder;
    std::map<std::string, std::vector<std::string>> by_tag;
    for (const CodedText& text : texts) {
        by_tag[text.tag].push_back(text.text);
    }
    CDBOperations* const tables = CDBOperations::Instance();
    for (const auto& [tag, messages] : by_tag) {
        const fs::path path = folder.Path() / "table.db";
        fs::remove(path);
        WriteCodeTable(path, messages);
        if (!tables->m_OpenDB(path.c_str()) || !tables->m_GetAllHuffmanCode("HuffmanCode", tag) ||
            !tables->m_CloseDB()) {
            throw std::runtime_error(tag + ": the code table cannot be loaded");
        }
    }
}

}  // namespace bench
