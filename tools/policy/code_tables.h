#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct sqlite3;

namespace trelvo {

// The code tables of a policy folder, turned round: from a code's bytes to the message. Read once,
// databases opened read-only; unchanged afterwards.
class CodeTables {
public:
    // Throws PolicyError when policy_version.xml cannot be read. A database that cannot be read
    // costs only its tag's messages and is told in Faults().
    explicit CodeTables(const std::string& folder);

    [[nodiscard]] const std::string& Version() const { return version_; }
    // One line for each database that gave no table, or a part of one; names the file.
    [[nodiscard]] const std::vector<std::string>& Faults() const { return faults_; }
    // Nothing where the bytes are not a code of the tag, or one that several messages share.
    [[nodiscard]] std::optional<std::string_view> Message(std::string_view tag,
                                                          std::string_view code) const;

private:
    using Table = std::map<std::string, std::optional<std::string>, std::less<>>;

    void ReadDatabase(const std::string& tag, const std::string& path);
    [[nodiscard]] Table ReadTable(sqlite3* database, const std::string& path);

    std::string version_;
    std::vector<std::string> faults_;
    std::map<std::string, Table, std::less<>> tables_;  // by tag
};

}  // namespace trelvo
