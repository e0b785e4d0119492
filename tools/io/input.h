#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "io/shared_limits.h"
#include "platform/handles.h"

namespace trelvo {

// Standard input, as a word of a command line.
inline constexpr const char* kStandardInput = "-";

// Where the bytes of a dump come from.
class Input {
public:
    Input() = default;
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;
    virtual ~Input() = default;

    // Reads at most `size` bytes into `data`; 0 only at the end. Throws std::system_error when the
    // bytes cannot be read.
    [[nodiscard]] virtual size_t Read(char* data, size_t size) = 0;

    // Lets the next Read start at an offset that was read already.
    virtual void Seek(uint64_t offset) = 0;

    // Promises that no further Seek comes, so that nothing more is kept for one.
    virtual void ReadOnce() {}

    // When the file was last written; nothing for what is not a regular file.
    [[nodiscard]] virtual std::optional<timespec> WriteTime() const { return std::nullopt; }
};

// A regular file, a pipe of the shell's (<(...), /dev/stdin), or whatever is standard input under
// the name "-". Anything else that a name may stand for, such as a FIFO that somebody laid among
// the dumps, is refused, and nothing is waited for while it is opened. What cannot be sought in is
// kept in memory as it is read; a regular file is not. While it is parked, a file is closed.
class FileInput : public Input, private Parkable {
public:
    // Told of bytes that were read, and how many.
    using Observer = std::function<void(size_t)>;

    // Throws std::system_error when the file cannot be opened or is refused.
    explicit FileInput(const std::string& path, Observer observer = {});

    [[nodiscard]] size_t Read(char* data, size_t size) override;
    void Seek(uint64_t offset) override { position_ = offset; }
    void ReadOnce() override { keep_ = false; }

    [[nodiscard]] std::optional<timespec> WriteTime() const override { return write_time_; }

private:
    // Takes the bytes from the file itself.
    [[nodiscard]] size_t ReadFile(char* data, size_t size);
    // Throws where the open file is neither a regular one nor a pipe without a name.
    void RefuseOthers(const struct stat& status);
    void Reopen();
    void Park() override { fd_ = {}; }

    std::string path_;
    Observer observer_;
    port::UniqueFd fd_;  // none while it is parked
    bool seekable_ = false;
    bool can_park_ = false;
    bool keep_ = true;
    dev_t device_ = 0;  // of the file that was opened first
    ino_t inode_ = 0;
    int64_t start_ = 0;      // where the file stood when it was handed over as standard input
    uint64_t position_ = 0;  // of the next Read
    std::optional<timespec> write_time_;
    std::vector<std::string> kept_;  // pieces of kPiece bytes, but for the last one
    uint64_t kept_size_ = 0;
    MemoryCharge kept_charge_;
};

// A file, or standard input under the name "-", decompressed where it begins as a zstd frame does.
// Throws std::system_error when it cannot be opened or read.
[[nodiscard]] std::unique_ptr<Input> OpenInput(const std::string& path,
                                               FileInput::Observer observer = {});

}  // namespace trelvo
