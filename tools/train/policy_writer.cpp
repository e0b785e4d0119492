#include "train/policy_writer.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <system_error>
#include <utility>

#include "platform/handles.h"
#include "policy/policy_file.h"
#include "text/escape.h"

namespace trelvo {

namespace {

namespace fs = std::filesystem;

constexpr const char* kPolicyFile = "policy_version.xml";
constexpr size_t kLongestName = 64;

PolicyError LastError(const std::string& path) {
    return PolicyError(path + ": " + std::generic_category().message(errno));
}

class File {
public:
    // Throws PolicyError.
    File(std::string path, int flags)
        : path_(std::move(path)), fd_(open(path_.c_str(), flags | O_CLOEXEC, 0644)) {
        if (!fd_) {
            throw LastError(path_);
        }
    }

    void Write(std::string_view text) const {
        while (!text.empty()) {
            const ssize_t count = write(fd_.Get(), text.data(), text.size());
            if (count < 0 && errno != EINTR) {
                throw LastError(path_);
            }
            text.remove_prefix(static_cast<size_t>(std::max<ssize_t>(count, 0)));
        }
    }
    void Sync() const {
        if (fsync(fd_.Get()) != 0) {
            throw LastError(path_);
        }
    }

private:
    std::string path_;
    port::UniqueFd fd_;  // closed silently: Sync has reported what there is
};

// A folder next to the target, which is removed with all that is in it.
class StagingFolder {
public:
    explicit StagingFolder(const std::string& target) : path_(target + ".XXXXXX") {
        if (mkdtemp(path_.data()) == nullptr) {
            throw LastError(target);
        }
        const mode_t mask = umask(0);
        static_cast<void>(umask(mask));
        if (chmod(path_.c_str(), 0755 & ~mask) != 0) {
            const PolicyError error = LastError(path_);
            Remove();
            throw error;
        }
    }
    StagingFolder(const StagingFolder&) = delete;
    StagingFolder& operator=(const StagingFolder&) = delete;
    ~StagingFolder() { Remove(); }

    [[nodiscard]] const std::string& Path() const { return path_; }

private:
    void Remove() const {
        std::error_code ignored;  // nothing is left to do about it
        fs::remove_all(path_, ignored);
    }

    std::string path_;
};

std::string Quoted(std::string_view text) {
    std::string quoted = "\"";
    for (const char c : text) {
        switch (c) {
            case '&':
                quoted += "&amp;";
                break;
            case '<':
                quoted += "&lt;";
                break;
            case '"':
                quoted += "&quot;";
                break;
            default:
                quoted += c;
        }
    }
    return quoted + '"';
}

// The number keeps names apart, and from beginning with a dot or a dash.
std::string DatabaseName(std::string_view tag, size_t number) {
    std::string name(tag.substr(0, kLongestName));
    std::replace_if(
        name.begin(), name.end(),
        [](char c) {
            return !((c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
                     c == '.' || c == '-');
        },
        '_');
    return std::to_string(number) + '-' + name + ".db";
}

std::string Bits(std::string_view code) {
    std::string bits;
    for (const char c : code) {
        for (int bit = 7; bit >= 0; --bit) {
            bits += (static_cast<uint8_t>(c) >> bit & 1) != 0 ? '1' : '0';
        }
    }
    return bits;
}

// REQUIRES: nothing exists at the path.
void WriteDatabase(const std::string& path, const std::vector<CodedText>& codes) {
    sqlite3* handle = nullptr;
    const int opened = sqlite3_open(path.c_str(), &handle);
    const std::unique_ptr<sqlite3, decltype(&sqlite3_close)> database(handle, sqlite3_close);
    const auto require = [&path, handle](bool done) {
        if (!done) {
            throw PolicyError(path + ": " + sqlite3_errmsg(handle));
        }
    };
    const auto run = [&require, handle](const char* sql) {
        require(sqlite3_exec(handle, sql, nullptr, nullptr, nullptr) == SQLITE_OK);
    };
    require(opened == SQLITE_OK);
    // No journal and no waiting for the disk: the folder is not in place before it is safe.
    run("pragma page_size = 4096; pragma encoding = 'UTF-8'; pragma auto_vacuum = none;"
        "pragma journal_mode = off; pragma synchronous = off;"
        "begin; create table HuffmanCode (log TEXT, huffmancode TEXT)");

    sqlite3_stmt* prepared = nullptr;
    require(sqlite3_prepare_v2(handle, "insert into HuffmanCode values (?, ?)", -1, &prepared,
                               nullptr) == SQLITE_OK);
    std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)> insertion(prepared,
                                                                         sqlite3_finalize);
    for (const CodedText& coded : codes) {
        const std::string bits = Bits(coded.code);
        require(sqlite3_bind_text64(prepared, 1, coded.text.data(), coded.text.size(),
                                    SQLITE_STATIC, SQLITE_UTF8) == SQLITE_OK &&
                sqlite3_bind_text64(prepared, 2, bits.data(), bits.size(), SQLITE_STATIC,
                                    SQLITE_UTF8) == SQLITE_OK &&
                sqlite3_step(prepared) == SQLITE_DONE && sqlite3_reset(prepared) == SQLITE_OK);
    }
    insertion.reset();
    run("commit");
}

void MoveIntoPlace(const std::string& staging, const std::string& target, bool replace) {
    fs::path parent = fs::path(target).parent_path();
    // Opened first: where that is not allowed, the target must stay as it is.
    const File folder(parent.empty() ? "." : parent.string(), O_RDONLY | O_DIRECTORY);
    const bool exchange = replace && fs::exists(fs::symlink_status(target));
    if (renameat2(AT_FDCWD, staging.c_str(), AT_FDCWD, target.c_str(),
                  exchange ? RENAME_EXCHANGE : RENAME_NOREPLACE) != 0) {
        throw LastError(target);
    }
    folder.Sync();
}

// A slash at the end would follow a symbolic link.
std::string WithoutSlashes(const std::string& folder) {
    return folder.substr(0, std::max<size_t>(folder.find_last_not_of('/') + 1, 1));
}

}  // namespace

bool IsPolicyText(std::string_view text) {
    // U+FFFE and U+FFFF are characters, but not to XML; a TAB would come back as a blank.
    return IsText(text) && text.find('\t') == std::string_view::npos &&
           text.find("\xEF\xBF\xBE") == std::string_view::npos &&
           text.find("\xEF\xBF\xBF") == std::string_view::npos;
}

void RequireTarget(const std::string& folder, bool replace) {
    std::error_code error;
    const fs::file_status status = fs::symlink_status(WithoutSlashes(folder), error);
    if (!fs::exists(status)) {
        return;
    }
    if (!replace) {
        throw PolicyError(folder + ": exists and is kept; --force replaces it");
    }
    if (!fs::is_directory(status)) {
        throw PolicyError(folder + ": not a folder; left unchanged");
    }
    for (const fs::directory_entry& entry : fs::directory_iterator(folder, error)) {
        const fs::path name = entry.path().filename();
        if (!entry.is_regular_file() || (name != kPolicyFile && name.extension() != ".db")) {
            throw PolicyError(folder + ": holds more than a policy (" + name.string() +
                              ") and is kept");
        }
    }
    if (error) {
        throw PolicyError(folder + ": " + error.message());
    }
}

uint64_t WritePolicyFolder(const std::string& folder, bool replace, const std::string& version,
                           const std::vector<TagTable>& tables) {
    const std::string target = WithoutSlashes(folder);
    const StagingFolder staging(target);
    PolicyFile policy;
    policy.version = version;
    std::string xml = "<trelvo>\n  <policy version=" + Quoted(version) + "/>\n";
    uint64_t bytes = 0;
    for (const TagTable& table : tables) {
        const std::string name = DatabaseName(table.tag, policy.databases.size() + 1);
        const std::string path = staging.Path() + '/' + name;
        WriteDatabase(path, table.codes);
        File(path, O_RDONLY).Sync();
        bytes += fs::file_size(path);
        policy.databases.emplace_back(table.tag, name);
        xml += "  <db logtag=" + Quoted(table.tag) + " name=" + Quoted(name) + "/>\n";
    }
    xml += "</trelvo>\n";
    const std::string path = staging.Path() + '/' + kPolicyFile;
    {
        const File file(path, O_WRONLY | O_CREAT | O_EXCL);
        file.Write(xml);
        file.Sync();
    }
    const PolicyFile written = ReadPolicyFile(path);
    if (written.version != policy.version || written.databases != policy.databases) {
        throw PolicyError(path + ": does not read back as it was written");
    }
    File(staging.Path(), O_RDONLY | O_DIRECTORY).Sync();
    RequireTarget(target, replace);
    MoveIntoPlace(staging.Path(), target, replace);
    return bytes + xml.size();
}

}  // namespace trelvo
