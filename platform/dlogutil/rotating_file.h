#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <system_error>

#include "handles.h"

namespace dlogutil {

// A place in the current file.
struct FilePlace {
    uint64_t inode;
    uint64_t size;
};

// A text file of bounded size that is renamed to FILE.1 when it is full, FILE.1 to FILE.2 and so
// on. Whatever happens, readers never see half a line that is not being written at that moment.
//
// Owns the folder's lock: one writer for a folder, in all processes. Everything happens relative to
// the opened folder and never follows a symbolic link: others may write where that folder lies.
class RotatingFile {
public:
    // Makes the folder (mode 0700) when it is absent, and removes the files that an earlier writer
    // left. A full file has `limit_bytes` or one line more. `rotated_count` files are kept.
    //
    // Throws std::runtime_error, which names the file or folder, when the folder is a link or
    // another user's, when one of the names is taken by anything but what this user's writer
    // leaves, or when another writer holds the folder for more than 5 seconds.
    RotatingFile(const std::string& path, uint64_t limit_bytes, int rotated_count);

    // Leaves for the writer to come what the constructor leaves: an empty file and no others.
    // Throws as above.
    static void Clear(const std::string& path, int rotated_count);

    // Goes on where a writer ended, at whatever moment, after it had begun to write `text` at
    // `from`: removes from its front the whole lines that are in the file. Half a line is taken
    // back. Throws as above.
    RotatingFile(const std::string& path, uint64_t limit_bytes, int rotated_count,
                 const FilePlace& from, std::string& text);

    // Writes of `lines`, each with its line feed, those that the current file still takes, and
    // removes them from its front. An error leaves files and `lines` after the last whole line, so
    // that it can be tried again. Throws std::system_error when half a line cannot be taken back.
    [[nodiscard]] std::error_code Append(std::string_view& lines);

    // Whether the next line would begin a file while FILE.1 is still there. A reader that counts
    // lines and removes what it has read mistakes lines when it finds both, and loses those of a
    // FILE.1 that is replaced.
    [[nodiscard]] bool HasUnread() const;
    // Rotates a full file before the line that is to begin the next. Errors are those of Append.
    [[nodiscard]] std::error_code RotateIfFull();
    // Behind the last line. The inode changes with the file.
    [[nodiscard]] FilePlace Place() const { return {inode_, size_}; }
    // A socket FILE.sync beside the file, of mode 0600, that listens and does not block. Throws
    // std::system_error.
    [[nodiscard]] port::UniqueFd Listen() const;
    // The folder, for watching it.
    [[nodiscard]] const std::string& Folder() const { return folder_path_; }

private:
    // Opens and locks the folder.
    RotatingFile(uint64_t limit_bytes, int rotated_count, const std::string& path);
    [[nodiscard]] std::string Rotated(int number) const;
    [[nodiscard]] std::string FreshName() const;
    [[nodiscard]] std::string SocketName() const;
    // The inode of that name, 0 when there is none. Throws std::runtime_error when it is not one
    // that this user's writer leaves.
    [[nodiscard]] uint64_t LeftOver(const std::string& name, mode_t type) const;
    void RemoveLeftOver(const std::string& name, mode_t type) const;
    void BeginAnew();
    // Takes a file that was created or opened as the current one.
    void Take(port::UniqueFd file);
    [[nodiscard]] port::UniqueFd Create(const std::string& name) const;
    [[nodiscard]] std::error_code Rotate();

    std::string folder_path_;
    std::string name_;
    uint64_t limit_bytes_;
    int rotated_count_;
    port::UniqueFd folder_;
    port::UniqueFd file_;
    uint64_t inode_ = 0;
    uint64_t size_ = 0;
    uint64_t reserved_ = 0;  // the size up to which the file has its space
};

}  // namespace dlogutil
