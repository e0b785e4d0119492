#include "trelvoctl/output.h"

#include <cerrno>
#include <cstdio>
#include <system_error>

#include "escape/escape.h"

namespace {

[[noreturn]] void ThrowLastError() {
    throw OutputError("standard output: " + std::generic_category().message(errno));
}

}  // namespace

void Print(std::string_view data) {
    if (std::fwrite(data.data(), 1, data.size(), stdout) != data.size()) {
        ThrowLastError();
    }
}

void FlushOutput() {
    if (std::fflush(stdout) != 0) {
        ThrowLastError();
    }
}

void Complain(std::string_view message) {
    FlushOutput();
    const std::string line = "trelvoctl: " + Escape(message) + "\n";
    // There is nowhere left to report that standard error is gone.
    static_cast<void>(std::fputs(line.c_str(), stderr));
}
