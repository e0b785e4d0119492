#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <string>

namespace trelvo {

// An open file or folder. All functions throw std::system_error that names it.
class File {
public:
    // `folder` is an open folder or AT_FDCWD; a file that is made has mode 0600 less the umask.
    // Links are not followed.
    File(int folder, const std::string& name, int flags);
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File();

    [[nodiscard]] int Get() const { return fd_; }
    [[nodiscard]] struct stat Status() const;
    // 0 at the end.
    [[nodiscard]] size_t Read(char* data, size_t size) const;
    // Writes all of it.
    void Write(const char* data, size_t size) const;
    // Returns once all that was written, or the names of the folder, are on the disk.
    void Sync() const;

    // Throws for this file what errno says.
    [[noreturn]] void Throw() const;

private:
    std::string name_;
    int fd_;
};

// Gives the file this text by a rename, so that no reader sees a part of it. Throws
// std::system_error.
void ReplaceFile(const std::string& path, const std::string& text);

}  // namespace trelvo
