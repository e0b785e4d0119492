#include "commands/pager.h"

#include <fcntl.h>
#include <glib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>

#include "commands/output.h"

namespace trelvo {

namespace {

// Of the pager; for a signal handler.
volatile sig_atomic_t pager_pid = 0;

// Its input ends with the last descriptor of the pipe.
void WaitForPager() {
    while (waitpid(pager_pid, nullptr, 0) < 0 && errno == EINTR) {
    }
}

// The pager has the terminal; a program that ends earlier takes it away.
void LeaveAfterPager(int signal) {
    close(STDOUT_FILENO);
    close(STDERR_FILENO);
    WaitForPager();
    _exit(128 + signal);
}

std::string PagerCommand() {
    const char* const terminal = std::getenv("TERM");
    if (isatty(STDOUT_FILENO) == 0 || terminal == nullptr || std::string(terminal) == "dumb") {
        return {};
    }
    for (const char* const name : {"TRELVO_PAGER", "PAGER"}) {
        if (const char* const command = std::getenv(name)) {
            return std::string(command) == "cat" ? "" : command;
        }
    }
    char* const less = g_find_program_in_path("less");
    std::string command = less != nullptr ? "less" : "";
    g_free(less);
    return command;
}

}  // namespace

Pager::Pager() {
    const std::string command = PagerCommand();
    std::array<int, 2> pipe{};
    if (command.empty() || pipe2(pipe.data(), O_CLOEXEC) != 0) {
        return;
    }
    FlushOutput();
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(pipe[0], STDIN_FILENO);
        // Leaves when one screen is enough or on ^C, shows colours, cuts long lines.
        setenv("LESS", "FRSXMK", 0);
        execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
        _exit(127);
    }
    close(pipe[0]);
    if (pid > 0) {
        pager_pid = pid;
        static_cast<void>(std::signal(SIGINT, LeaveAfterPager));
        saved_output_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
        dup2(pipe[1], STDOUT_FILENO);
        if (isatty(STDERR_FILENO) != 0) {
            saved_error_ = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
            dup2(pipe[1], STDERR_FILENO);
        }
    }
    close(pipe[1]);
}

Pager::~Pager() {
    if (pager_pid == 0) {
        return;
    }
    close(STDOUT_FILENO);
    if (saved_error_ >= 0) {
        dup2(saved_error_, STDERR_FILENO);
        close(saved_error_);
    }
    WaitForPager();
    pager_pid = 0;
    static_cast<void>(std::signal(SIGINT, SIG_DFL));
    dup2(saved_output_, STDOUT_FILENO);
    close(saved_output_);
}

bool IsShown() {
    return pager_pid != 0 || isatty(STDOUT_FILENO) != 0;
}

}  // namespace trelvo
