#include "Folders.h"

#include <dirent.h>
#include <sys/stat.h>

#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <cstdio>
#include <memory>

#include "DumpFile.h"
#include "Log.h"

namespace fs = boost::filesystem;

namespace folders {

bool CheckSymbolicLink(const char* path) {
    struct stat status {};
    if (lstat(path, &status) != 0) {
        const int error = errno;
        if (error == ENOENT) {
            return true;
        }
        TR_LOGE("lstat error occured path:%s errno:%d", path, error);
        return false;
    }
    if (S_ISLNK(status.st_mode)) {
        TR_LOGE("symbolic link is detected: %s", path);
        return false;
    }
    return true;
}

bool GenerateUniqueName(const fs::path& folder, const fs::path& name, fs::path& result) {
    const std::string& text = name.string();
    const size_t dot = text.rfind('.');
    boost::system::error_code error;
    result = folder / name;
    fs::file_status status = fs::status(result, error);
    for (int number = 1; fs::exists(status); ++number) {
        // Throws without a dot; the dump writer's own names have one.
        const std::string extension = text.substr(dot);
        result = folder / NumberedName(text.substr(0, dot), extension, number);
        status = fs::status(result, error);
    }
    if (status.type() != fs::file_not_found) {
        TR_LOGE("Not expected boost error %d", error.value());
        return false;
    }
    return true;
}

void GetFoldersize(const std::string& folder, unsigned long long& size) {
    size = 0;
    try {
        if (!fs::exists(folder)) {
            TR_LOGE("Folder Path not exist");
            return;
        }
        // Throws at the first entry without a size, such as a subfolder: `size` then covers the
        // entries before it.
        for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
            size += fs::file_size(entry.path());
        }
    } catch (const fs::filesystem_error& failure) {
        const std::string text =
            "Get folder size failed with error code: " + failure.code().message();
        TR_LOGE("%s", text.c_str());
    } catch (...) {
        TR_LOGE("unknown exception caught");
    }
}

void GetFileList(const std::string& folder, std::vector<std::string>& names) {
    struct CloseFolder {
        void operator()(DIR* dir) const { static_cast<void>(closedir(dir)); }
    };
    const std::unique_ptr<DIR, CloseFolder> dir(opendir(folder.c_str()));
    if (dir == nullptr) {
        std::puts("Could not open current directory");
        return;
    }
    names.clear();
    while (const dirent* entry = readdir(dir.get())) {
        // Without a dot the whole name counts as the extension: npos + 1 is 0.
        const std::string name = entry->d_name;
        const size_t dot = name.rfind('.');
        if (name.compare(dot + 1, std::string::npos, "db") == 0) {
            names.push_back(name.substr(0, dot));
        }
    }
}

}  // namespace folders
