#include "policy/code_tables.h"

#include <sqlite3.h>

#include <memory>
#include <utility>

#include "policy/policy_file.h"

namespace trelvo {

namespace {

// From a text of 0 and 1, whole bytes of it. Nothing for a text that no code can come from.
std::optional<std::string> CodeBytes(std::string_view bits) {
    if (bits.size() % 8 != 0) {
        return std::string();  // the service stores such a code without any bytes, unread
    }
    if (bits.find_first_not_of("01") != std::string_view::npos) {
        return std::nullopt;
    }
    std::string bytes(bits.size() / 8, '\0');
    for (size_t i = 0; i < bits.size(); ++i) {
        const int bit = bits[i] == '1' ? 0x80 >> i % 8 : 0;
        bytes[i / 8] = static_cast<char>(bytes[i / 8] | bit);
    }
    return bytes;
}

// Up to the first zero byte, as the service compares it. Null for NULL.
const char* ColumnText(sqlite3_stmt* row, int column) {
    return reinterpret_cast<const char*>(sqlite3_column_text(row, column));
}

}  // namespace

CodeTables::CodeTables(const std::string& folder) {
    const PolicyFile policy = ReadPolicyFile(folder + "/policy_version.xml");
    version_ = policy.version;
    for (const auto& [tag, name] : policy.databases) {
        ReadDatabase(tag, folder + "/" + name);
    }
}

void CodeTables::ReadDatabase(const std::string& tag, const std::string& path) {
    sqlite3* handle = nullptr;
    const int opened = sqlite3_open_v2(path.c_str(), &handle, SQLITE_OPEN_READONLY, nullptr);
    // A failed opening leaves a handle to close, too.
    const std::unique_ptr<sqlite3, decltype(&sqlite3_close)> database(handle, sqlite3_close);
    if (opened != SQLITE_OK) {
        faults_.push_back(path + ": " + sqlite3_errstr(opened));
        return;
    }
    // Of several tables for one tag the last that holds anything counts.
    if (Table table = ReadTable(handle, path); !table.empty()) {
        tables_[tag] = std::move(table);
    }
}

CodeTables::Table CodeTables::ReadTable(sqlite3* database, const std::string& path) {
    sqlite3_stmt* statement = nullptr;
    const int prepared = sqlite3_prepare_v2(database, "select log, huffmancode from HuffmanCode",
                                            -1, &statement, nullptr);
    const std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)> rows(statement,
                                                                          sqlite3_finalize);
    if (prepared != SQLITE_OK) {
        faults_.push_back(path + ": " + sqlite3_errmsg(database));
        return {};
    }

    std::map<std::string, std::string> codes;  // a message in several rows keeps the last code
    int step = SQLITE_ROW;
    while ((step = sqlite3_step(statement)) == SQLITE_ROW) {
        const char* const message = ColumnText(statement, 0);
        const char* const bits = ColumnText(statement, 1);
        if (message == nullptr || bits == nullptr) {
            continue;
        }
        if (auto code = CodeBytes(bits)) {
            codes[message] = *std::move(code);
        }
    }
    if (step != SQLITE_DONE) {
        faults_.push_back(path + ": " + sqlite3_errmsg(database));
    }

    Table messages;
    for (auto& [message, code] : codes) {
        const auto [entry, added] = messages.try_emplace(std::move(code), message);
        if (!added) {
            entry->second.reset();
        }
    }
    return messages;
}

std::optional<std::string_view> CodeTables::Message(std::string_view tag,
                                                    std::string_view code) const {
    const auto table = tables_.find(tag);
    if (table == tables_.end()) {
        return std::nullopt;
    }
    const auto entry = table->second.find(code);
    if (entry == table->second.end() || !entry->second) {
        return std::nullopt;
    }
    return *entry->second;
}

}  // namespace trelvo
