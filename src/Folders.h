#pragma once

#include <boost/filesystem/path.hpp>
#include <string>
#include <vector>

// Questions to the file system that are answered for the moment: names may be gone or taken when
// the answer is used. What fails is logged; nothing throws but GenerateUniqueName().
namespace folders {

// True when `path` may be created or overwritten: it is absent or not a symbolic link.
bool CheckSymbolicLink(const char* path);

// Sets `result` to the first of name.ext, name_1.ext, name_2.ext, ... that `folder` lacks. Returns
// false when the folder cannot be examined; `result` then holds the last candidate. Throws
// std::out_of_range for a taken name without a dot.
bool GenerateUniqueName(const boost::filesystem::path& folder, const boost::filesystem::path& name,
                        boost::filesystem::path& result);

// Sets `size` to the bytes of the folder's direct entries, up to the first that has no size.
void GetFoldersize(const std::string& folder, unsigned long long& size);

// Base names of the code databases (*.db) in a folder.
void GetFileList(const std::string& folder, std::vector<std::string>& names);

}  // namespace folders
