#include "support/fuzz_support.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>

#include "CDataProvider.h"
#include "support/private_namespace.h"
#include "support/silent_platform.h"

namespace fuzz {

struct BufferMutex {
    friend auto Get(BufferMutex);
};
template struct Reveal<BufferMutex, &CDataProvider::m_BufferMutex>;

void Require(bool holds, const std::string& what) {
    if (!holds) {
        static_cast<void>(std::fprintf(stderr, "FAULT: %s\n", what.c_str()));
        std::abort();
    }
}

std::string Feed(std::string line) {
    std::string thrown;
    try {
        CDataProvider::Instance()->m_GetDataDDP(line);
        return {};
    } catch (const std::invalid_argument& error) {
        thrown = std::string("invalid_argument: ") + error.what();
    } catch (const std::out_of_range& error) {
        thrown = std::string("out_of_range: ") + error.what();
    }
    (CDataProvider::Instance()->*Get(BufferMutex{})).unlock();
    return thrown;
}

}  // namespace fuzz

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    test_support::EnterPrivateNamespace();
    // Formatted, since the arguments are hostile.
    test_support::SetLogHandler([](const char* format, va_list arguments) {
        std::array<char, 512> message;
        static_cast<void>(std::vsnprintf(message.data(), message.size(), format, arguments));
    });
    return 0;
}
