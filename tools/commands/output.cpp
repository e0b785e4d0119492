#include "commands/output.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>
#include <system_error>

#include "commands/progress.h"
#include "text/escape.h"

namespace trelvo {

namespace {

constexpr size_t kBufferSize = size_t{64} * 1024;
constexpr int kPipeSize = 1024 * 1024;

// What was printed and not yet written: larger pieces than those of stdio, and no lock.
std::string& Buffer() {
    static std::string buffer;
    return buffer;
}

// Asked once, before the first piece. A pipe that holds many pieces lets its reader work meanwhile.
bool PrepareOutput() {
    // Anything but a pipe refuses, and needs nothing.
    static_cast<void>(fcntl(STDOUT_FILENO, F_SETPIPE_SZ, kPipeSize));
    return isatty(STDOUT_FILENO) != 0;
}

bool IsTerminal() {
    static const bool is_terminal = PrepareOutput();
    return is_terminal;
}

[[noreturn]] void ThrowLastError() {
    throw OutputError("standard output: " + std::generic_category().message(errno));
}

}  // namespace

void Print(std::string_view data) {
    std::string& buffer = Buffer();
    buffer += data;
    if (IsTerminal() || buffer.size() >= kBufferSize) {
        FlushOutput();
    }
}

std::string Format(const char* format, ...) {
    char* text = nullptr;
    std::va_list values;
    va_start(values, format);
    const int size = vasprintf(&text, format, values);
    va_end(values);
    if (size < 0) {
        throw std::bad_alloc();
    }
    std::string result(text, static_cast<size_t>(size));
    std::free(text);
    return result;
}

void FlushOutput() {
    std::string& buffer = Buffer();
    if (!buffer.empty() && IsTerminal()) {
        Progress::Hide();
    }
    for (std::string_view rest = buffer; !rest.empty();) {
        const ssize_t count = write(STDOUT_FILENO, rest.data(), rest.size());
        if (count < 0 && errno != EINTR) {
            buffer.clear();  // a second attempt would print a part twice
            ThrowLastError();
        }
        rest.remove_prefix(count < 0 ? 0 : static_cast<size_t>(count));
    }
    buffer.clear();
}

std::optional<size_t> TerminalWidth() {
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) {
        return std::nullopt;
    }
    return size.ws_col;
}

void Complain(std::string_view message) {
    FlushOutput();
    Progress::Hide();
    const std::string line = "trelvoctl: " + Escape(message) + "\n";
    // There is nowhere left to report that standard error is gone.
    static_cast<void>(std::fputs(line.c_str(), stderr));
}

}  // namespace trelvo
