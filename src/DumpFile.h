#pragma once

#include <cstddef>
#include <string>

#include "FileDescriptor.h"

// The files of the dump writer. Their folders may belong to others, who swap names while a dump is
// being written: every file is made new, nothing is followed, overwritten or waited for.
//
// All functions throw std::system_error with the reason of a failed call.

// A file that was not there before. Its name is removed with this object unless it is to stay.
class NewFile {
public:
    // `folder` is a descriptor, which must outlive this object, or AT_FDCWD. Mode 0666 less the
    // umask. Throws EEXIST where the name is taken.
    NewFile(int folder, std::string name);
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;
    ~NewFile();

    int Get() const { return fd_.Get(); }
    const std::string& Name() const { return name_; }

    // Appends all of it. Throws where only a part could be written.
    void Write(const unsigned char* data, size_t size);
    // Appends all that was written to `source`.
    void Copy(const NewFile& source);
    void Stay() { stays_ = true; }

private:
    int folder_;
    std::string name_;
    FileDescriptor fd_;
    size_t size_ = 0;
    bool stays_ = false;
};

// A folder that dumps are written to, whatever its path names later.
class DumpFolder {
public:
    // Throws where the folder cannot be entered.
    explicit DumpFolder(const std::string& path);

    // Stores a copy of `dump` under the first free name of stem.ext, stem_1.ext, stem_2.ext, ...
    // and returns that name once file and name are on the disk. Until then the copy has a hidden
    // name. Hidden files that a writer of the same user left when it was killed are removed first.
    // Where only the last step fails, syncing the folder, the dump stays, whole.
    std::string Store(const NewFile& dump, const std::string& stem, const std::string& extension);

private:
    void RemoveLeftovers() const;
    // False where the name is taken.
    bool Rename(NewFile& file, const std::string& name) const;
    void Sync(const NewFile& file) const;

    FileDescriptor fd_;
};

// stem.ext for 0, stem_1.ext for 1, ...
std::string NumberedName(const std::string& stem, const std::string& extension, int number);
