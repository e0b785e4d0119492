#include "policy/policies.h"

#include <filesystem>
#include <system_error>
#include <utility>

#include "policy/policy_file.h"

namespace trelvo {

namespace fs = std::filesystem;

Policies::Policies(const std::optional<std::string>& folder,
                   const std::optional<std::string>& folders, bool force)
    : force_(force) {
    if (folder) {
        auto tables = std::make_unique<const CodeTables>(*folder);
        faults_ = tables->Faults();
        only_ = tables.get();
        loaded_.emplace(only_->Version(), std::move(tables));
    } else if (folders) {
        ReadFolders(*folders);
    }
}

void Policies::ReadFolders(const std::string& parent) {
    parent_ = parent;
    std::error_code error;
    for (fs::directory_iterator entry(parent, error), end; !error && entry != end;
         entry.increment(error)) {
        const std::string path = entry->path().string();
        std::error_code refused;
        if (!fs::exists(path + "/policy_version.xml", refused)) {
            if (refused) {
                faults_.push_back(path + ": " + refused.message());
            }
            continue;
        }
        std::string version;
        try {
            version = ReadPolicyFile(path + "/policy_version.xml").version;
        } catch (const PolicyError& fault) {
            faults_.emplace_back(fault.what());
            continue;
        }
        const auto [known, added] = folders_.emplace(version, path);
        if (!added) {
            throw PolicyError(known->second + " and " + path + " are both of policy version '" +
                              version + "'");
        }
    }
    if (error) {
        throw PolicyError(parent + ": " + error.message());
    }
}

const CodeTables* Policies::Load(const std::string& version, const std::string& folder) {
    auto& tables = loaded_[version];
    if (!tables) {
        tables = std::make_unique<const CodeTables>(folder);
        faults_.insert(faults_.end(), tables->Faults().begin(), tables->Faults().end());
    }
    return tables.get();
}

const CodeTables* Policies::For(const std::string& version) {
    if (only_ != nullptr) {
        if (version.empty() && !force_) {
            return nullptr;
        }
        if (only_->Version() != version && !force_) {
            throw PolicyError("needs the code tables of policy version '" + version +
                              "', not those of '" + only_->Version() + "'");
        }
        return only_;
    }
    if (parent_.empty()) {
        return nullptr;
    }
    if (const auto folder = folders_.find(version); folder != folders_.end()) {
        return Load(version, folder->second);
    }
    if (version.empty()) {
        return nullptr;
    }
    throw PolicyError("needs the code tables of policy version '" + version + "', which " +
                      parent_ + " lacks");
}

std::vector<std::string> Policies::TakeFaults() {
    return std::exchange(faults_, {});
}

}  // namespace trelvo
