#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "commands/faults.h"
#include "dump/dump_reader.h"

namespace trelvo {

// What people are told that an input is called.
[[nodiscard]] std::string InputName(const std::string& path);

// Whether a file of this name in a folder is taken for a dump: NAME.dump or NAME.dump.zst.
[[nodiscard]] bool IsDumpName(std::string_view name);

// Orders names as people number them: trelvo.dump, trelvo_2.dump, trelvo_10.dump.
[[nodiscard]] bool NaturalLess(const std::string& a, const std::string& b);

// The dumps that lie in a folder, ordered by name. Throws std::system_error when it cannot be read.
[[nodiscard]] std::vector<std::string> DumpsIn(const std::string& folder);

// The files that the words of a command line stand for: in the place of a folder all dumps that lie
// in it, ordered by name. A folder that holds none or cannot be read is a fault.
[[nodiscard]] std::vector<std::string> ExpandInputs(const std::vector<std::string>& words,
                                                    Faults& faults);

// Reads the head of a dump; the input must outlive the reader. Throws as DumpReader does, or
// OtherFormatError where the input is something else that is known.
[[nodiscard]] std::unique_ptr<DumpReader> OpenDump(Input& input);

// Bytes of all these files together, as far as they are files.
[[nodiscard]] uint64_t TotalSize(const std::vector<std::string>& files);

}  // namespace trelvo
