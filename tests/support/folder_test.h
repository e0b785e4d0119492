#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "support/process.h"

namespace test_support {

// A test with a folder of its own.
class FolderTest : public testing::Test {
protected:
    FolderTest() {
        char name[] = "/tmp/trelvo-test-XXXXXX";
        folder_ = mkdtemp(name);
    }
    ~FolderTest() override { std::filesystem::remove_all(folder_); }

    // Runs a shell line in the folder, with the programs on the PATH.
    Output Run(const std::string& line) const {
        return RunProgram(
            {"sh", "-c",
             "cd " + folder_.string() + "; PATH=" TRELVO_BIN_DIR ":$PATH; export TZ=UTC; " + line});
    }

    std::filesystem::path folder_;
};

}  // namespace test_support
