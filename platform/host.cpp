#include "host.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "dlogutil/rotating_file.h"

namespace port {
namespace {

constexpr const char* kLifelineVariable = "TRELVO_LIFELINE_FD";

}  // namespace

std::vector<Fault> SetModes(const std::optional<gid_t>& readers) {
    umask(readers ? S_IWGRP | S_IRWXO : S_IRWXG | S_IRWXO);
    if (readers && getegid() != *readers && setgid(*readers) != 0) {
        return {{"[dump] group",
                 "this user cannot take that group; start the service with it, under systemd by "
                 "Group= in a drop-in"}};
    }
    return {};
}

void PutOwnProgramsFirstOnPath() {
    const std::filesystem::path folder =
        std::filesystem::read_symlink("/proc/self/exe").parent_path();
    const std::filesystem::path installed = folder.parent_path() / "lib/trelvo";
    const std::string own =
        (std::filesystem::is_directory(installed) ? installed : folder).string();
    const char* const value = std::getenv("PATH");
    const std::string path = value != nullptr ? value : "";
    if (path != own && path.compare(0, own.size() + 1, own + ":") != 0 &&
        setenv("PATH", (path.empty() ? own : own + ":" + path).c_str(), 1) != 0) {
        ThrowErrno("PATH");
    }
}

UniqueFd TakeLock(const std::string& path) {
    UniqueFd lock(open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!lock) {
        ThrowErrno(path);
    }
    if (flock(lock.Get(), LOCK_EX | LOCK_NB) == 0) {
        const std::string pid = std::to_string(getpid()) + "\n";
        if (ftruncate(lock.Get(), 0) != 0 ||
            write(lock.Get(), pid.data(), pid.size()) != static_cast<ssize_t>(pid.size())) {
            ThrowErrno(path);
        }
        return lock;
    }
    if (errno != EWOULDBLOCK) {
        ThrowErrno(path);
    }
    return {};
}

void ClearCaptureFiles(const std::string& file, int rotated_count) {
    dlogutil::RotatingFile::Clear(file, rotated_count);
}

UniqueFd PrepareDumpFolder(const std::string& folder) {
    struct stat info {};
    if ((mkdir(folder.c_str(), S_IRWXU | S_IRGRP | S_IXGRP | S_IROTH | S_IXOTH) != 0 &&
         errno != EEXIST) ||
        lstat(folder.c_str(), &info) != 0) {
        ThrowErrno(folder);
    }
    if (!S_ISDIR(info.st_mode) || info.st_uid != geteuid() ||
        (info.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        throw std::runtime_error(folder +
                                 ": not a folder that only this user writes to; remove it");
    }
    UniqueFd lock(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!lock || flock(lock.Get(), LOCK_SH | LOCK_NB) != 0) {
        ThrowErrno(folder);
    }
    return lock;
}

Lifeline::Lifeline() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        ThrowErrno("pipe");
    }
    read_end_ = UniqueFd(ends[0]);
    write_end_ = UniqueFd(ends[1]);
    // This end is the one that children are to inherit.
    if (fcntl(read_end_.Get(), F_SETFD, 0) != 0 ||
        setenv(kLifelineVariable, std::to_string(read_end_.Get()).c_str(), 1) != 0) {
        ThrowErrno(kLifelineVariable);
    }
}

Lifeline::~Lifeline() {
    static_cast<void>(unsetenv(kLifelineVariable));
}

}  // namespace port
