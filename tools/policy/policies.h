#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "policy/code_tables.h"

namespace trelvo {

// Finds the code tables for a dump by the policy version that it names. Tables of another version
// turn codes into wrong messages without any sign of it, so they are refused unless forced.
class Policies {
public:
    // `folder` is one policy folder, `folders` a folder that holds one for each version; neither
    // means no tables. Throws PolicyError when a folder cannot be read.
    Policies(const std::optional<std::string>& folder, const std::optional<std::string>& folders,
             bool force);

    // The tables for this version; null where none were asked for, and for the empty version, which
    // a recorder without tables wrote, unless forced. They live as long as this object. Throws
    // PolicyError when there are none.
    [[nodiscard]] const CodeTables* For(const std::string& version);

    // One line for each table that could not be read since the last call.
    [[nodiscard]] std::vector<std::string> TakeFaults();

private:
    void ReadFolders(const std::string& parent);
    const CodeTables* Load(const std::string& version, const std::string& folder);

    bool force_;
    std::string parent_;                          // of the folders; for messages
    std::map<std::string, std::string> folders_;  // by version, not loaded yet
    std::map<std::string, std::unique_ptr<const CodeTables>> loaded_;  // by version
    const CodeTables* only_ = nullptr;                                 // those of the one folder
    std::vector<std::string> faults_;
};

}  // namespace trelvo
