#include "DumpFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <random>
#include <system_error>
#include <utility>
#include <vector>

namespace {

constexpr const char* kHiddenStart = ".trelvo-";
constexpr const char* kHiddenEnd = ".part";
constexpr size_t kCopySize = 131072;  // bytes
// So that whoever fills a folder with names does not keep the writer busy for ever.
constexpr int kMaxNames = 100000;

[[noreturn]] void Throw(const char* call, int error = errno) {
    throw std::system_error(error, std::generic_category(), call);
}

int OpenNew(int folder, const std::string& name) {
    const int fd = openat(folder, name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                          S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH);
    if (fd < 0) {
        Throw("open");
    }
    return fd;
}

int OpenFolder(const std::string& path) {
    int fd = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0 && errno == EACCES) {
        // A drop box: files may be put into it, but not listed.
        fd = open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    }
    if (fd < 0) {
        Throw("open");
    }
    return fd;
}

std::string HiddenName() {
    std::random_device random;
    std::array<char, 40> name{};
    static_cast<void>(std::snprintf(name.data(), name.size(), "%s%08x%08x%s", kHiddenStart,
                                    random(), random(), kHiddenEnd));
    return name.data();
}

bool IsHiddenName(const char* name) {
    const size_t length = std::strlen(name);
    const size_t end = std::strlen(kHiddenEnd);
    return std::strncmp(name, kHiddenStart, std::strlen(kHiddenStart)) == 0 && length > end &&
           std::strcmp(name + length - end, kHiddenEnd) == 0;
}

// True for a regular file of this user without another name.
bool IsOwn(const struct stat& status) {
    return S_ISREG(status.st_mode) && status.st_uid == geteuid() && status.st_nlink == 1;
}

}  // namespace

NewFile::NewFile(int folder, std::string name)
    : folder_(folder), name_(std::move(name)), fd_(OpenNew(folder_, name_)) {}

NewFile::~NewFile() {
    if (!stays_) {
        static_cast<void>(unlinkat(folder_, name_.c_str(), 0));
    }
}

void NewFile::Write(const unsigned char* data, size_t size) {
    while (size > 0) {
        const ssize_t written = write(fd_.Get(), data, size);
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            Throw("write");
        }
        data += written;
        size -= static_cast<size_t>(written);
        size_ += static_cast<size_t>(written);
    }
}

void NewFile::Copy(const NewFile& source) {
    std::vector<unsigned char> buffer(kCopySize);
    for (size_t copied = 0; copied < source.size_;) {
        const ssize_t count =
            pread(source.Get(), buffer.data(), buffer.size(), static_cast<off_t>(copied));
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            Throw("read", count < 0 ? errno : EIO);
        }
        Write(buffer.data(), static_cast<size_t>(count));
        copied += static_cast<size_t>(count);
    }
}

DumpFolder::DumpFolder(const std::string& path) : fd_(OpenFolder(path)) {
    struct stat status {};
    if (fstatat(fd_.Get(), ".", &status, 0) != 0) {
        Throw("stat");
    }
}

std::string DumpFolder::Store(const NewFile& dump, const std::string& stem,
                              const std::string& extension) {
    RemoveLeftovers();
    NewFile file(fd_.Get(), HiddenName());
    // Says that its writer lives; a file system without locks does not need them to hold a dump.
    static_cast<void>(flock(file.Get(), LOCK_EX | LOCK_NB));
    file.Copy(dump);
    // Before it has its name: a name that reaches the disk first would be that of a cut dump.
    if (fsync(file.Get()) != 0) {
        Throw("fsync");
    }
    for (int number = 0; number < kMaxNames; ++number) {
        std::string name = NumberedName(stem, extension, number);
        if (Rename(file, name)) {
            Sync(file);
            return name;
        }
    }
    Throw("rename", EEXIST);
}

// What cannot be removed costs its room, but not this dump.
void DumpFolder::RemoveLeftovers() const {
    const int list = openat(fd_.Get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (list < 0) {
        return;
    }
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(fdopendir(list), closedir);
    if (entries == nullptr) {
        static_cast<void>(close(list));
        return;
    }
    for (int count = 0; count < kMaxNames; ++count) {
        const dirent* const entry = readdir(entries.get());
        if (entry == nullptr) {
            return;
        }
        const char* const name = entry->d_name;
        struct stat status {};
        if (!IsHiddenName(name) || fstatat(fd_.Get(), name, &status, AT_SYMLINK_NOFOLLOW) != 0 ||
            !IsOwn(status)) {
            continue;
        }
        const FileDescriptor file(
            openat(fd_.Get(), name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        if (file.Get() >= 0 && flock(file.Get(), LOCK_EX | LOCK_NB) == 0) {
            static_cast<void>(unlinkat(fd_.Get(), name, 0));
        }
    }
}

bool DumpFolder::Rename(NewFile& file, const std::string& name) const {
    const char* const from = file.Name().c_str();
    if (renameat2(fd_.Get(), from, fd_.Get(), name.c_str(), RENAME_NOREPLACE) == 0) {
        file.Stay();
        return true;
    }
    // Not every file system has that flag; a link does not replace anything either.
    if ((errno == EINVAL || errno == ENOSYS) &&
        linkat(fd_.Get(), from, fd_.Get(), name.c_str(), 0) == 0) {
        static_cast<void>(unlinkat(fd_.Get(), from, 0));
        file.Stay();
        return true;
    }
    if (errno != EEXIST) {
        Throw("rename");
    }
    return false;
}

void DumpFolder::Sync(const NewFile& file) const {
    if (fsync(fd_.Get()) == 0) {
        return;
    }
    // EBADF: opened without the right to read it. EINVAL: its file system has nothing to sync.
    if (errno == EBADF ? syncfs(file.Get()) != 0 : errno != EINVAL) {
        Throw("fsync");
    }
}

std::string NumberedName(const std::string& stem, const std::string& extension, int number) {
    return stem + (number == 0 ? "" : "_" + std::to_string(number)) + extension;
}
