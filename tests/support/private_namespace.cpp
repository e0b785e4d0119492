#include "support/private_namespace.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <string>

#include "platform/handles.h"
#include "support/process.h"

namespace fs = std::filesystem;

namespace test_support {
namespace {

void Unshare() {
    if (unshare(CLONE_NEWNS) == 0) {
        return;
    }
    const std::string uid = std::to_string(geteuid());
    const std::string gid = std::to_string(getegid());
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
        ThrowErrno("unshare");
    }
    WriteFile("/proc/self/setgroups", "deny");
    WriteFile("/proc/self/uid_map", "0 " + uid + " 1");
    WriteFile("/proc/self/gid_map", "0 " + gid + " 1");
}

void Mount(const fs::path& target, const char* source, unsigned long flags) {
    if (mount(source, target.c_str(), nullptr, flags, nullptr) != 0) {
        ThrowErrno("mount on " + target.string());
    }
}

void Hide(const fs::path& folder) {
    if (fs::exists(folder) && mount("tmpfs", folder.c_str(), "tmpfs", 0, "mode=0755") != 0) {
        ThrowErrno("mount on " + folder.string());
    }
}

// A folder that keeps its place when a parent of it is hidden.
class KeptFolder {
public:
    explicit KeptFolder(const char* path)
        : path_(path), fd_(open(path, O_PATH | O_DIRECTORY | O_CLOEXEC)) {}

    void Restore() const {
        if (!fs::exists(path_)) {
            fs::create_directories(path_);
            Mount(path_, ("/proc/self/fd/" + std::to_string(fd_.Get())).c_str(), MS_BIND | MS_REC);
        }
    }

private:
    fs::path path_;
    port::UniqueFd fd_;
};

// An overlay would be shorter, but a user namespace may not mount one on every kernel.
void HideEtc() {
    const fs::path real = "/run/etc";
    fs::create_directory(real);
    Mount(real, "/etc", MS_BIND | MS_REC);
    Hide("/etc");
    for (const auto& entry : fs::directory_iterator(real)) {
        const fs::path name = entry.path().filename();
        if (name != "trelvo" && name != "machine-id") {
            fs::create_symlink(entry.path(), "/etc" / name);
        }
    }
    fs::create_directory("/etc/trelvo");
    WriteFile("/etc/machine-id", "7472656c766f00000000000074657374\n");
}

void Enter() {
    const fs::path working_folder = fs::current_path();
    Unshare();
    // Opened inside the namespace: a mount of another one cannot be bound here.
    const KeptFolder build(TRELVO_BUILD_DIR);
    const KeptFolder source(TRELVO_SOURCE_DIR);
    Mount("/", "none", MS_REC | MS_PRIVATE);
    for (const char* folder : {"/tmp", "/run", "/opt", "/var/log/journal"}) {
        Hide(folder);
    }
    if (fs::exists("/dev/kmsg")) {  // where a journal writes its own messages
        Mount("/dev/kmsg", "/dev/null", MS_BIND);
    }
    HideEtc();
    source.Restore();
    build.Restore();
    fs::current_path(fs::exists(working_folder) ? working_folder : fs::path(TRELVO_BUILD_DIR));
    for (const char* name : {"XDG_RUNTIME_DIR", "DBUS_SYSTEM_BUS_ADDRESS", "TMPDIR"}) {
        unsetenv(name);
    }
}

}  // namespace

void EnterPrivateNamespace() {
    try {
        Enter();
    } catch (const std::exception& error) {
        std::cerr << "no private mount namespace for the tests: " << error.what() << '\n';
        std::exit(1);
    }
}

}  // namespace test_support
