#include "CDBOperations.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "CTRXMLParser.h"
#include "CUtility.h"
#include "FixedPaths.h"
#include "Log.h"

namespace {

constexpr const char* kPolicyFile = "policy_version.xml";

std::string PolicyPath(const std::string& folder) {
    return folder + "/" + kPolicyFile;
}

struct CloseFile {
    void operator()(FILE* file) const { static_cast<void>(std::fclose(file)); }
};

// A folder opens like a file, but has no content to read.
bool IsFolder(FILE* file) {
    struct stat status {};
    return fstat(fileno(file), &status) == 0 && S_ISDIR(status.st_mode);
}

struct FinalizeStatement {
    void operator()(sqlite3_stmt* statement) const {
        // Repeats the error of the last step, which has ended the loop already.
        static_cast<void>(sqlite3_finalize(statement));
    }
};

// Up to the first zero byte. Null for NULL.
const char* ColumnText(sqlite3_stmt* row, int column) {
    return reinterpret_cast<const char*>(sqlite3_column_text(row, column));
}

// Whether the path stays in the folder, whatever is on the disk.
bool IsWithin(const std::string& folder, const std::string& path) {
    const std::string normal = std::filesystem::path(path).lexically_normal().string();
    return normal.compare(0, folder.size() + 1, folder + "/") == 0;
}

// Whether there is nothing of that name, but could be.
bool IsMissing(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) != 0 && errno == ENOENT &&
           access(path.substr(0, path.rfind('/') + 1).c_str(), W_OK | X_OK) == 0;
}

// Ends what SQLite does with a database once the time is over, for as long as it lives.
class Deadline {
public:
    Deadline(sqlite3* database, std::chrono::seconds limit)
        : m_Database(database), m_End(Clock::now() + limit) {
        constexpr int kSteps = 10000;  // of SQLite's own machine: some hundred microseconds
        sqlite3_progress_handler(
            database, kSteps, [](void* self) { return static_cast<Deadline*>(self)->IsOver(); },
            this);
    }
    Deadline(const Deadline&) = delete;
    Deadline& operator=(const Deadline&) = delete;
    ~Deadline() { sqlite3_progress_handler(m_Database, 0, nullptr, nullptr); }

private:
    using Clock = std::chrono::steady_clock;

    int IsOver() const { return Clock::now() >= m_End ? 1 : 0; }

    sqlite3* m_Database;
    Clock::time_point m_End;
};

}  // namespace

CDBOperations* CDBOperations::m_pInstance = nullptr;

CDBOperations* CDBOperations::Instance() {
    static std::once_flag created;
    std::call_once(created, [] { m_pInstance = new CDBOperations(); });
    return m_pInstance;
}

void CDBOperations::CreateHashMap() {
    const bool isServer = CUtility::Instance()->GetPolicyMode() != 0;
    std::string folder = isServer ? paths::kServerPolicy : paths::kDefaultPolicy;
    std::string xmlText;
    bool isRead = ReadRawXML(PolicyPath(folder).c_str(), xmlText);
    if (!isRead && !isServer) {
        TR_LOGE("XML Read Error for Default Policy - continue without hash map");
        return;
    }
    if (!isRead) {
        TR_LOGE("XML Read Error for Server Policy - continue with default Policy");
        folder = paths::kDefaultPolicy;
        isRead = ReadRawXML(PolicyPath(folder).c_str(), xmlText);
    }
    if (!isRead) {
        TR_LOGE("XML Read Error for Default Policy too - continue without hash map");
        return;
    }

    const TR::TRXMLParser parser;
    TR::TR_LogTagDataMap policy;
    if (!parser.Parse(xmlText, policy)) {
        TR_LOGE("Policy Parsing failed!!!!");
        return;
    }
    {
        const std::lock_guard<std::mutex> lock(m_VersionMutex);
        m_PolicyVersion = policy.m_PolicyVersion;
    }
    for (const auto& [logTag, database] : policy.m_DatabaseList) {
        TR_LOGI("DLOG_TAG_NAME = %s, DLOG_DB_NAME = %s", logTag.c_str(), database.c_str());
        const std::string path = folder + "/" + database;
        TR_LOGI("DB FILE PATH = %s", path.c_str());
        if (!IsWithin(folder, path)) {
            TR_LOGE("DB FILE PATH = %s refused: not in %s", path.c_str(), folder.c_str());
            continue;
        }
        if (!m_OpenDB(path.c_str())) {
            TR_LOGE("DB FILE PATH = %s open failed", path.c_str());
            continue;
        }
        // A database that gives nothing or does not close costs its own tag only.
        static_cast<void>(m_GetAllHuffmanCode("HuffmanCode", logTag));
        static_cast<void>(m_CloseDB());
    }
}

std::string CDBOperations::GetPolicyVersion() {
    const std::lock_guard<std::mutex> lock(m_VersionMutex);
    return m_PolicyVersion;
}

bool CDBOperations::ReadRawXML(const char* path, std::string& out) {
    TR_LOGI("ReadRawXML FUNCTION --");
    const std::unique_ptr<FILE, CloseFile> file(std::fopen(path, "rt"));
    if (file == nullptr || IsFolder(file.get()) || std::fseek(file.get(), 0, SEEK_END) != 0) {
        TR_LOGE("Unable to open XML file %s", path);
        return false;
    }
    const auto expected = static_cast<size_t>(std::ftell(file.get()));
    out.resize(expected);
    std::rewind(file.get());
    const size_t count = std::fread(out.data(), 1, expected, file.get());
    if (count != expected) {
        TR_LOGE("Read size %zu expected size %zu", count, expected);
        return false;
    }
    return true;
}

// Failures are logged at info on purpose, here and in m_CloseDB: CreateHashMap reports what
// matters of them as an error.
bool CDBOperations::m_OpenDB(const char* path) {
    // As sqlite3_open does it, but for the locking: the handle stays on this thread. It opens for
    // writing, which recovers a database whose last writer was cut off, and would create a missing
    // one, which is then read as what it would be.
    constexpr int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX;
    const char* const name = IsMissing(path) ? ":memory:" : path;
    if (sqlite3_open_v2(name, &m_Database, flags, nullptr) != SQLITE_OK) {
        TR_LOGI("Can't open database: %s", sqlite3_errmsg(m_Database));
        // SQLite gives a handle even when opening failed.
        static_cast<void>(sqlite3_close(m_Database));
        m_Database = nullptr;
        return false;
    }
    TR_LOGI("Opened database successfully");
    return true;
}

bool CDBOperations::m_CloseDB() {
    if (sqlite3_close(m_Database) != SQLITE_OK) {
        TR_LOGI("Can't close database: %s", sqlite3_errmsg(m_Database));
        return false;
    }
    m_Database = nullptr;
    TR_LOGI("Closed database successfully");
    return true;
}

bool CDBOperations::m_GetAllHuffmanCode(std::string tableName, std::string logTag) {
    char sql[1024];
    static_cast<void>(
        std::snprintf(sql, sizeof sql, "select log, huffmancode from %s", tableName.c_str()));
    // Every page is read once: keeping them would take 2 MB, which stay with the heap. What a view
    // has to sort stays in memory, where it is bounded. What may be wrong with the database is
    // found again, and logged, by the next call.
    static_cast<void>(sqlite3_exec(m_Database, "pragma temp_store = memory; pragma cache_size = 16",
                                   nullptr, nullptr, nullptr));
    static_cast<void>(sqlite3_hard_heap_limit64(static_cast<sqlite3_int64>(m_Limits.kib * 1024)));
    const Deadline deadline(m_Database, std::chrono::seconds(m_Limits.seconds));
    sqlite3_stmt* prepared = nullptr;
    if (sqlite3_prepare_v2(m_Database, sql, -1, &prepared, nullptr) != SQLITE_OK) {
        TR_LOGE("Failed to get Huffman codes: %s", sqlite3_errmsg(m_Database));
        return false;
    }
    std::unique_ptr<sqlite3_stmt, FinalizeStatement> statement(prepared);
    TR_LOGI("Execute SQL statement");

    CodeTable table;
    if (const std::string limit = m_ReadRows(statement.get(), table); !limit.empty()) {
        TR_LOGE("No codes for logtag [%s]: its table takes more than %s", logTag.c_str(),
                limit.c_str());
        return false;
    }
    if (!table.IsEmpty()) {
        table.Index();
        m_CodeTables[logTag] = std::move(table);
        m_TableCount = m_CodeTables.size();
        TR_LOGI("HMap created for logtag [%s]", logTag.c_str());
    }
    statement.reset();
    TR_LOGI("Read database successfully");
    return true;
}

std::string CDBOperations::m_ReadRows(sqlite3_stmt* statement, CodeTable& table) const {
    int result = SQLITE_ROW;
    for (unsigned long long rows = 1; (result = sqlite3_step(statement)) == SQLITE_ROW; ++rows) {
        if (rows > m_Limits.rows) {
            return std::to_string(m_Limits.rows) + " rows";
        }
        if (table.Memory() > m_Limits.kib * 1024) {
            break;
        }
        const char* const message = ColumnText(statement, 0);
        const char* const code = ColumnText(statement, 1);
        if (message == nullptr || code == nullptr) {
            continue;
        }
        std::string_view digits = code;
        if (digits.size() % 8 != 0) {
            // Not padded: logged there, and stored with no bytes.
            std::vector<unsigned char> none;
            static_cast<void>(CUtility::Instance()->m_GetHcodeByteArray(code, none));
            digits = {};
        }
        if (!table.Add(message, digits)) {
            TR_LOGE("Skipped code that is not made of 0 and 1: %s", code);
        }
    }
    if (result == SQLITE_INTERRUPT) {
        return std::to_string(m_Limits.seconds) + " s";
    }
    // Any other result ends the table where it is.
    return result == SQLITE_NOMEM || table.Memory() > m_Limits.kib * 1024
               ? std::to_string(m_Limits.kib) + " KiB"
               : "";
}

std::string_view CDBOperations::FindCode(std::string_view logTag, std::string_view message) const {
    const auto table = m_CodeTables.find(logTag);
    return table == m_CodeTables.end() ? std::string_view() : table->second.Find(message);
}
