#include "runtime_folder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <stdexcept>

#include "handles.h"
#include "launch_interface.h"

namespace port {
namespace {

std::string Path() {
    if (geteuid() == 0) {
        return launch_interface::kRootFolder;
    }
    const char* const base = std::getenv("XDG_RUNTIME_DIR");
    if (base == nullptr || *base != '/') {
        throw std::runtime_error("XDG_RUNTIME_DIR does not name a folder");
    }
    return std::string(base) + "/" + launch_interface::kUserFolder;
}

}  // namespace

std::string RuntimeFolder() {
    std::string path = Path();
    if (mkdir(path.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
        ThrowErrno(path);
    }
    const UniqueFd folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat info {};
    if (!folder || fstat(folder.Get(), &info) != 0) {
        ThrowErrno(path);
    }
    if (info.st_uid != geteuid()) {
        throw std::runtime_error(path + ": belongs to another user");
    }
    if ((info.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        throw std::runtime_error(path + ": is open to other users, its mode must be 0700");
    }
    return path;
}

}  // namespace port
