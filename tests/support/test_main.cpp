#include <gmock/gmock.h>

#include <cstdlib>

#include "support/private_namespace.h"

int main(int argc, char** argv) {
    testing::InitGoogleMock(&argc, argv);
    // Listing the tests touches nothing and also happens where a build has no namespaces.
    if (!GTEST_FLAG_GET(list_tests)) {
        test_support::EnterPrivateNamespace();
        // Tests wait for messages of every level.
        setenv("TRELVO_LOG_LEVEL", "verbose", 1);
    }
    return RUN_ALL_TESTS();
}
