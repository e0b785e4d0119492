#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// Where the bytes of a dump come from.
class ByteSource {
public:
    ByteSource() = default;
    ByteSource(const ByteSource&) = delete;
    ByteSource& operator=(const ByteSource&) = delete;
    virtual ~ByteSource() = default;

    // Reads at most `size` bytes into `data`; 0 only at the end. Throws std::system_error when the
    // bytes cannot be read.
    [[nodiscard]] virtual size_t Read(char* data, size_t size) = 0;

    // Lets the next Read start at an offset that was read already.
    virtual void Seek(uint64_t offset) = 0;
};

// A file, or standard input under the name "-". What cannot be sought in, such as a pipe, is kept
// in memory as it is read; a regular file is not.
class FileSource : public ByteSource {
public:
    // Throws std::system_error when the file cannot be opened.
    explicit FileSource(const std::string& path);
    ~FileSource() override;

    [[nodiscard]] size_t Read(char* data, size_t size) override;
    void Seek(uint64_t offset) override { position_ = offset; }

private:
    int fd_;
    bool seekable_ = false;
    int64_t start_ = 0;      // where the file stood when it was handed over as standard input
    uint64_t position_ = 0;  // of the next Read
    std::string kept_;
};
