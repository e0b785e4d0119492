#pragma once

#include <sqlite3.h>

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

#include "CodeTable.h"

// What one table may cost; one that costs more is not loaded at all.
struct TableLimits {
    unsigned long long rows = 4000000;
    unsigned long long kib =
        256ULL * 1024;  // of memory: of the table, and of SQLite while it reads
    unsigned long long seconds = 30;
};

// The code tables: for each log tag of the policy, message text to the code that stands for it.
//
// Filled once by CreateHashMap on the compressor thread, before the first line is encoded, and
// only read afterwards, so the tables carry no lock. The policy version does: the dump writer may
// ask for it while it is being set. Either thread may be the first to call Instance().
class CDBOperations {
public:
    static CDBOperations* Instance();

    // Reads the policy file of the policy mode's folder and loads every database it names.
    // Failures are logged; whatever could be loaded stays.
    void CreateHashMap();

    // To be called before CreateHashMap, if at all.
    void SetLimits(const TableLimits& limits) { m_Limits = limits; }

    std::string GetPolicyVersion();
    // Tables that are loaded; any thread may ask.
    size_t GetTableCount() const { return m_TableCount; }

    // Reads a whole file; false when it cannot be opened or read to its end.
    bool ReadRawXML(const char* path, std::string& out);

    // Open and close the one database handle that m_GetAllHuffmanCode reads from. A database that
    // is not there reads as an empty one, where it could be made, but it is not made.
    bool m_OpenDB(const char* path);
    bool m_CloseDB();
    // Loads the table as `logTag`'s code table, replacing an earlier one unless nothing was found.
    // False, with nothing loaded, when there is no such table or it goes beyond the limits.
    bool m_GetAllHuffmanCode(std::string tableName, std::string logTag);

    // What a record holds instead of `message`: LEB128 length and code bytes. Empty when the tag
    // has no table or the table lacks this very text; otherwise valid for the life of the process.
    [[nodiscard]] std::string_view FindCode(std::string_view logTag,
                                            std::string_view message) const;

private:
    CDBOperations() = default;

    // Adds all rows. Returns the limit that they go beyond, or nothing.
    std::string m_ReadRows(sqlite3_stmt* statement, CodeTable& table) const;

    static CDBOperations* m_pInstance;

    std::map<std::string, CodeTable, std::less<>> m_CodeTables;  // by log tag
    TableLimits m_Limits;
    sqlite3* m_Database = nullptr;  // open only while a table is being loaded
    std::string m_PolicyVersion;    // guarded by m_VersionMutex
    std::mutex m_VersionMutex;
    std::atomic<size_t> m_TableCount{0};
};
