#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/process.h"

namespace test_support {

// A test with a folder of its own, which goes with its namespace.
class FolderTest : public testing::Test {
protected:
    FolderTest() { std::filesystem::create_directories(folder_); }

    // Runs a shell line in the folder, with the programs on the PATH.
    Output Run(const std::string& line) const {
        return RunProgram(
            {"bash", "-c",
             "cd " + folder_.string() + "; PATH=" TRELVO_BIN_DIR ":$PATH; export TZ=UTC; " + line});
    }

    const std::filesystem::path folder_ = "/tmp/test";
};

}  // namespace test_support
