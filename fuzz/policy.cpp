// A policy folder of random bytes, for the service and for trelvoctl: both must load the same
// tables, or trelvoctl shows messages that were not logged.
//
// The input is the policy file up to its first zero byte, then the database "a.db".

#include <sqlite3.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <string>
#include <string_view>

#include "CDBOperations.h"
#include "policy/code_tables.h"
#include "policy/policy_file.h"
#include "support/fuzz_support.h"
#include "support/process.h"

using namespace trelvo;

namespace fuzz {

struct Tables {
    friend auto Get(Tables);
};
template struct Reveal<Tables, &CDBOperations::m_CodeTables>;
struct Version {
    friend auto Get(Version);
};
template struct Reveal<Version, &CDBOperations::m_PolicyVersion>;
struct Decoded {
    friend auto Get(Decoded);
};
template struct Reveal<Decoded, &CodeTables::tables_>;

}  // namespace fuzz

namespace {

const std::filesystem::path kFolder = "/opt/usr/share/Trelvo/Default";

// Whether SQLite finds nothing wrong with the database. What it gives of a damaged one depends on
// memory that it never wrote: two readings need not agree, nor notice.
bool IsSound() {
    sqlite3* database = nullptr;
    sqlite3_stmt* result = nullptr;
    sqlite3_hard_heap_limit64(32 << 20);  // the check believes what a database says of its size
    const bool sound =
        sqlite3_open_v2((kFolder / "a.db").c_str(), &database, SQLITE_OPEN_READONLY, nullptr) ==
            SQLITE_OK &&
        sqlite3_prepare_v2(database, "pragma integrity_check", -1, &result, nullptr) == SQLITE_OK &&
        sqlite3_step(result) == SQLITE_ROW &&
        std::string(reinterpret_cast<const char*>(sqlite3_column_text(result, 0))) == "ok";
    sqlite3_finalize(result);
    sqlite3_close(database);
    sqlite3_hard_heap_limit64(0);
    return sound;
}

// Every text in the database that may be a message, whatever the two make of it.
std::set<std::string> Texts() {
    std::set<std::string> texts;
    sqlite3* database = nullptr;
    sqlite3_stmt* rows = nullptr;
    if (sqlite3_open_v2((kFolder / "a.db").c_str(), &database, SQLITE_OPEN_READONLY, nullptr) ==
            SQLITE_OK &&
        sqlite3_prepare_v2(database, "select log from HuffmanCode", -1, &rows, nullptr) ==
            SQLITE_OK) {
        while (sqlite3_step(rows) == SQLITE_ROW) {
            const unsigned char* const text = sqlite3_column_text(rows, 0);
            texts.insert(text != nullptr ? reinterpret_cast<const char*>(text) : "");
        }
    }
    sqlite3_finalize(rows);
    sqlite3_close(database);
    return texts;
}

// The code without the length before it.
std::string Code(std::string_view stored) {
    const auto* const last_of_length = std::find_if(
        stored.begin(), stored.end(), [](char c) { return static_cast<unsigned char>(c) < 128; });
    return {last_of_length + 1, stored.end()};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const uint8_t* const zero = std::find(data, data + size, 0);
    std::filesystem::create_directories(kFolder);
    for (const auto& entry : std::filesystem::directory_iterator(kFolder)) {
        std::filesystem::remove_all(entry);
    }
    test_support::WriteFile(kFolder / "policy_version.xml", std::string(data, zero));
    if (zero != data + size) {
        test_support::WriteFile(kFolder / "a.db", std::string(zero + 1, data + size));
    }
    CDBOperations& service = *CDBOperations::Instance();
    auto& tables = service.*Get(fuzz::Tables{});
    tables.clear();
    (service.*Get(fuzz::Version{})).clear();
    service.CreateHashMap();
    // After the service, which leaves a database where it found none.
    try {
        const CodeTables decoder(kFolder);
        fuzz::Require(decoder.Version() == service.GetPolicyVersion(), "another version");
        if (!IsSound()) {
            return 0;
        }
        const auto& decoded = decoder.*Get(fuzz::Decoded{});
        fuzz::Require(decoded.size() == tables.size(), "other tags");
        const std::set<std::string> texts = Texts();
        for (const auto& [tag, messages] : decoded) {
            for (const auto& [code, message] : messages) {
                const std::string_view stored =
                    message ? service.FindCode(tag, *message) : std::string_view();
                fuzz::Require(!message || (!stored.empty() && Code(stored) == code),
                              "the service lacks a code");
            }
            for (const std::string& text : texts) {
                const std::string_view stored = service.FindCode(tag, text);
                const auto found = messages.find(stored.empty() ? "" : Code(stored));
                fuzz::Require(stored.empty() || (found != messages.end() &&
                                                 (!found->second || *found->second == text)),
                              "trelvoctl lacks a code");
            }
        }
    } catch (const PolicyError&) {
        fuzz::Require(tables.empty(), "trelvoctl refuses what the service took");
    }
    return 0;
}
