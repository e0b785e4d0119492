#include "support/platform_fake.h"

#include <dlfcn.h>
#include <dlog.h>
#include <fcntl.h>
#include <glib.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <system_info.h>
#include <unistd.h>
#include <vconf.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <regex>

#include "support/failing_memory.h"
#include "support/process.h"
#include "support/sanitizers.h"

namespace test_support {

PlatformFake& Platform() {
    static auto* const fake = new PlatformFake();
    return *fake;
}

void PlatformFake::Record(const std::string& event) {
    std::function<void(const std::string& event)> handler;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        // Read before a test that waits for the event may set another one.
        handler = on_event;
        events_.emplace_back(std::this_thread::get_id(), event);
    }
    changed_.notify_all();
    if (handler) {
        handler(event);
    }
}

std::string PlatformFake::Take(bool of_this_thread_only) {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::string events;
    for (const auto& [thread, event] : events_) {
        if (!of_this_thread_only || thread == std::this_thread::get_id()) {
            events += (events.empty() ? "" : "; ") + event;
        }
    }
    events_.clear();
    return events;
}

bool PlatformFake::WaitFor(const std::string& event, long count) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, kLimit, [&] {
        return std::count_if(events_.begin(), events_.end(),
                             [&](const auto& entry) { return entry.second == event; }) >= count;
    });
}

std::string PlatformFake::Status() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return status_;
}

void PlatformFake::SetStatus(const std::string& text) {
    const std::lock_guard<std::mutex> lock(mutex_);
    status_ = text;
}

std::string Hex(const Bytes& bytes) {
    std::string text;
    char digits[4];
    for (const unsigned char byte : bytes) {
        static_cast<void>(std::snprintf(digits, sizeof digits, "%02X ", byte));
        text += digits;
    }
    return text.substr(0, text.size() - (text.empty() ? 0 : 1));
}

void InFreshProcess(const std::function<void()>& body) {
    const pid_t child = fork();
    if (child == 0) {
        EXPECT_NO_THROW(body());
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = -1;
    EXPECT_TRUE(waitpid(child, &status, 0) == child && status == 0);
}

namespace {

// The event of one log message, without the fields in front of its text.
std::string Event(int priority, const std::string& tag, const std::string& message) {
    static const std::regex kFields(R"(([^/: ]+): ([~\w]+)\((\d+)\) > \[\2:\3\] )");
    std::smatch fields;
    if (tag == "LOG_COMPRESSOR" &&
        std::regex_search(message, fields, kFields, std::regex_constants::match_continuous)) {
        return std::string(1, "??VDIWEFS"[priority]) + " " + fields.suffix().str();
    }
    return "MALFORMED " + message;
}

}  // namespace
}  // namespace test_support

using test_support::Platform;

// The thread sanitizer does not see GLib's own locks; it is told of the one that matters here.
#ifdef __SANITIZE_THREAD__
#include <sanitizer/tsan_interface.h>
#define TSAN_ACQUIRE(lock) __tsan_acquire(lock)
#define TSAN_RELEASE(lock) __tsan_release(lock)
#else
#define TSAN_ACQUIRE(lock) static_cast<void>(lock)
#define TSAN_RELEASE(lock) static_cast<void>(lock)
#endif

// What the test program hides under a function of the same name.
template <typename Function>
Function* Real(Function* /*hides*/, const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

long Ask(const test_support::FileCall& call, const std::function<long()>& real) {
    return Platform().on_file_call ? Platform().on_file_call(call, real) : real();
}

extern "C" {

int __dlog_print(log_id_t /*log_id*/, int prio, const char* tag, const char* fmt, ...) {
    if (Platform().ignores_log) {
        return 0;
    }
    const test_support::SpareMemory spare;
    char message[4096];
    va_list args;
    va_start(args, fmt);
    const int length = std::vsnprintf(message, sizeof message, fmt, args);
    va_end(args);
    Platform().Record(test_support::Event(prio, tag, message));
    return length;
}

int vconf_get_int(const char* key, int* value) {
    Platform().Record(std::string("get ") + key);
    *value = Platform().vconf_value;
    return Platform().vconf_get_result;
}

int vconf_set_int(const char* key, int value) {
    Platform().Record(std::string("set ") + key + "=" + std::to_string(value));
    return Platform().vconf_set_result;
}

// The status: published at any time, so it is not an event.
int vconf_set_str(const char* /*key*/, const char* value) {
    if (Platform().vconf_set_result == 0) {
        Platform().SetStatus(value);
    }
    return Platform().vconf_set_result;
}

int system_info_get_custom_int(const char* key, int* value) {
    Platform().Record(std::string("get ") + key);
    *value = Platform().feature_result == 0 ? Platform().feature_value : *value;
    return Platform().feature_result;
}

int device_power_subscribe_state_changed_event(device_power_state_changed_cb callback, void*) {
    Platform().power_callback = callback;
    return 0;
}

int device_power_unsubscribe_state_changed_event(device_power_state_changed_cb) {
    return device_power_subscribe_state_changed_event(nullptr, nullptr);
}

// Calls every callback once, in the order of a life, and fails.
int ui_app_main(int, char**, ui_app_lifecycle_callback_s* callback, void* data) {
    const int result = callback->create(data) ? -5 : 0;
    callback->app_control(nullptr, data);
    callback->pause(data);
    callback->resume(data);
    callback->terminate(data);
    return result;
}

void ui_app_exit(void) {
    Platform().Record("ui_app_exit");
}

int app_control_get_extra_data(app_control_h, const char* key, char** value) {
    const auto found = Platform().launch_arguments.find(key);
    if (found == Platform().launch_arguments.end()) {
        return APP_CONTROL_ERROR_KEY_NOT_FOUND;
    }
    *value = strdup(found->second.c_str());
    return APP_CONTROL_ERROR_NONE;
}

// The C library's and GLib's own functions, which the test program takes over.

int system(const char* command) {
    Platform().Record(std::string("system ") + command);
    return Platform().system_result;
}

int openat(int folder, const char* name, int flags, ...) {
    static const auto real = Real(openat, "openat");
    va_list args;
    va_start(args, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(args, mode_t) : 0;
    va_end(args);
    if ((flags & O_CREAT) == 0) {
        return real(folder, name, flags);
    }
    return static_cast<int>(
        Ask({"create", folder, "", name, ""}, [&] { return real(folder, name, flags, mode); }));
}

ssize_t write(int fd, const void* data, size_t size) {
    static const auto real = Real(write, "write");
    return Ask({"write", fd, "", "", {static_cast<const char*>(data), size}},
               [&] { return real(fd, data, size); });
}

int fsync(int fd) {
    static const auto real = Real(fsync, "fsync");
    return static_cast<int>(Ask({"fsync", fd, "", "", ""}, [&] { return real(fd); }));
}

int renameat2(int folder, const char* from, int other, const char* to, unsigned flags) noexcept {
    static const auto real = Real(renameat2, "renameat2");
    return static_cast<int>(Ask({"rename", folder, from, to, ""},
                                [&] { return real(folder, from, other, to, flags); }));
}

int linkat(int folder, const char* from, int other, const char* to, int flags) noexcept {
    static const auto real = Real(linkat, "linkat");
    return static_cast<int>(
        Ask({"link", folder, from, to, ""}, [&] { return real(folder, from, other, to, flags); }));
}

int unlinkat(int folder, const char* name, int flags) noexcept {
    static const auto real = Real(unlinkat, "unlinkat");
    return static_cast<int>(
        Ask({"unlink", folder, name, "", ""}, [&] { return real(folder, name, flags); }));
}

void g_cond_wait(GCond* condition, GMutex* mutex) {
    static const auto wait = Real(g_cond_wait, "g_cond_wait");
    Platform().Record("writer waits");
    do {
        TSAN_RELEASE(mutex);
        wait(condition, mutex);
        TSAN_ACQUIRE(mutex);
    } while (Platform().holds_writer);
}

void g_cond_signal(GCond* condition) {
    static const auto signal = Real(g_cond_signal, "g_cond_signal");
    Platform().Record("signal");
    signal(condition);
}

#ifdef __SANITIZE_THREAD__
void g_mutex_lock(GMutex* mutex) {
    static const auto lock = Real(g_mutex_lock, "g_mutex_lock");
    lock(mutex);
    TSAN_ACQUIRE(mutex);
}

void g_mutex_unlock(GMutex* mutex) {
    static const auto unlock = Real(g_mutex_unlock, "g_mutex_unlock");
    TSAN_RELEASE(mutex);
    unlock(mutex);
}
#endif

}  // extern "C"
