#include "support/process.h"

#include <fcntl.h>
#include <poll.h>
#include <sqlite3.h>
#include <sys/inotify.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace fs = std::filesystem;

namespace test_support {
namespace {

using Clock = std::chrono::steady_clock;

// False when nothing could be read by `deadline`.
bool PollUntil(int fd, Clock::time_point deadline) {
    int ready = 0;
    do {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        pollfd wait{fd, POLLIN, 0};
        ready = poll(&wait, 1, left.count() > 0 ? static_cast<int>(left.count()) : 0);
    } while (ready < 0 && errno == EINTR);
    return ready > 0;
}

// False at the limit.
bool WaitForEnd(pid_t pid) {
    // By number: the C library's header declares the call without its C linkage.
    const port::UniqueFd process(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
    return process ? PollUntil(process.Get(), Clock::now() + kLimit) : errno == ESRCH;
}

// In the child: lets the stream `target` lead to `path`.
void Redirect(int target, const fs::path& path) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (!path.empty() && dup2(fd, target) < 0) {
        _exit(127);
    }
}

}  // namespace

Process::Process(std::vector<std::string> argv, const fs::path& out, const fs::path& err) {
    std::vector<char*> words;
    words.reserve(argv.size() + 1);
    for (std::string& word : argv) {
        words.push_back(word.data());
    }
    words.push_back(nullptr);
    const pid_t parent = getpid();
    pid_ = fork();
    if (pid_ < 0) {
        ThrowErrno("fork");
    }
    if (pid_ > 0) {
        return;
    }
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() == parent) {  // else the test ended before the line above
        Redirect(STDOUT_FILENO, out);
        Redirect(STDERR_FILENO, err);
        execvp(words[0], words.data());
    }
    _exit(127);
}

Process::~Process() {
    if (status_ < 0) {
        Signal(SIGKILL);
        (void)Wait();
    }
}

void Process::Signal(int signal) const {
    if (status_ < 0) {
        (void)kill(pid_, signal);
    }
}

int Process::Wait() {
    int status = 0;
    if (status_ < 0 && WaitForEnd(pid_) && waitpid(pid_, &status, 0) == pid_) {
        status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    return status_;
}

Output RunProgram(const std::vector<std::string>& argv) {
    std::string name = "/tmp/run.XXXXXX";
    if (mkdtemp(name.data()) == nullptr) {
        ThrowErrno(name);
    }
    const fs::path folder = name;
    const int status = Process(argv, folder / "out", folder / "err").Wait();
    Output output{status, ReadFile(folder / "out"), ReadFile(folder / "err")};
    fs::remove_all(folder);
    return output;
}

bool WaitForInput(int fd) {
    return PollUntil(fd, Clock::now() + kLimit);
}

bool WaitForChange(const fs::path& folder, const std::function<bool()>& holds) {
    const port::UniqueFd events(inotify_init1(IN_CLOEXEC));
    if (!events) {
        ThrowErrno("inotify");
    }
    if (inotify_add_watch(events.Get(), folder.c_str(),
                          IN_CREATE | IN_DELETE | IN_MODIFY | IN_MOVE) < 0) {
        ThrowErrno(folder);
    }
    const auto deadline = Clock::now() + kLimit;
    std::array<char, 4096> drained;
    while (!holds()) {
        if (!PollUntil(events.Get(), deadline) ||
            read(events.Get(), drained.data(), drained.size()) < 0) {
            return false;
        }
    }
    return true;
}

long StatusValue(pid_t pid, const std::string& key) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind(key + ":", 0) == 0) {
            return std::atol(line.c_str() + key.size() + 1);
        }
    }
    return 0;
}

pid_t FindProgram(const fs::path& program) {
    const fs::path here = fs::read_symlink("/proc/self/ns/mnt");
    std::error_code error;  // of processes that have ended meanwhile
    for (const auto& entry : fs::directory_iterator("/proc")) {
        if (fs::read_symlink(entry.path() / "exe", error) == program &&
            fs::read_symlink(entry.path() / "ns/mnt", error) == here) {
            return std::stoi(entry.path().filename());
        }
    }
    return 0;
}

std::string ReadFile(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void MakeCodeTable(const fs::path& path, const std::string& rows) {
    sqlite3* database = nullptr;
    const std::string sql =
        "create table HuffmanCode (id integer, log text, huffmancode text);"
        "insert into HuffmanCode (log, huffmancode) values " +
        rows;
    if (sqlite3_open(path.c_str(), &database) != SQLITE_OK ||
        sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK ||
        sqlite3_close(database) != SQLITE_OK) {
        throw std::runtime_error(path.string() + ": " + sqlite3_errmsg(database));
    }
}

void WriteFile(const fs::path& path, const std::string& text) {
    std::ofstream file(path, std::ios::binary);
    if (!(file << text << std::flush)) {
        ThrowErrno(path);
    }
}

}  // namespace test_support
