#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "platform/handles.h"

// Programs and files of a test; whatever fails here throws std::system_error.
namespace test_support {

// The upper bound of every wait: far beyond what a loaded machine needs, below a test's time limit.
constexpr std::chrono::seconds kLimit{30};

using port::ThrowErrno;

// A child program, killed when this object or the thread that started it ends.
class Process {
public:
    // argv[0] is looked up on the PATH; a program that cannot be run ends with status 127. The
    // output goes to the end of these files, or where the test's own goes.
    explicit Process(std::vector<std::string> argv, const std::filesystem::path& out = {},
                     const std::filesystem::path& err = {});
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;
    ~Process();

    pid_t Pid() const { return pid_; }
    void Signal(int signal) const;
    // The exit status, 128 + n after signal n, or -1 when the program still runs at the limit.
    int Wait();

private:
    pid_t pid_;
    int status_ = -1;
};

struct Output {
    int status;  // as Process::Wait gives it
    std::string out;
    std::string err;
};

// Runs a program to its end.
Output RunProgram(const std::vector<std::string>& argv);

// Waits until `fd` can be read or is at its end. False at the limit.
[[nodiscard]] bool WaitForInput(int fd);

// Asks `holds` now and after every change in `folder`, which must exist, until it is true.
// False at the limit.
[[nodiscard]] bool WaitForChange(const std::filesystem::path& folder,
                                 const std::function<bool()>& holds);

// A number of /proc/<pid>/status, such as VmHWM in KiB; 0 when there is none.
long StatusValue(pid_t pid, const std::string& key);
// A running program of this mount namespace, whoever started it; 0 when there is none.
pid_t FindProgram(const std::filesystem::path& program);

// The whole file; empty when it cannot be read.
std::string ReadFile(const std::filesystem::path& path);
void WriteFile(const std::filesystem::path& path, const std::string& text);
// Makes a code database with these rows, in the words of SQL: "('text', 'code'), ...".
void MakeCodeTable(const std::filesystem::path& path, const std::string& rows);

}  // namespace test_support
