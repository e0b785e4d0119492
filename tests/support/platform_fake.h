#pragma once

#include <app.h>
#include <device/power-internal.h>

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/image.h"

namespace test_support {

// A call that changes a file or a folder: "create", "write", "fsync", "rename", "link" or "unlink".
struct FileCall {
    std::string name;
    int fd;  // the folder's for a call on names
    std::string from;
    std::string to;
    std::string data;
};

// Stands in for the platform: answers what the test sets and records, in one order over all
// threads, what the service does with it. Events read:
//
//   "I text"             a log message and its priority; "MALFORMED ..." when the fields in front
//                        of the text are not "file: function(line) > [function:line] "
//   "set <key>=<value>"  also "get <key>", "system <command>", "ui_app_exit"
//   "signal"             a GLib condition is signalled
//   "writer waits"       a thread is about to wait for a GLib condition and still holds its mutex
//
// The public members are set while no thread of the service uses them.
struct PlatformFake {
    int vconf_get_result = 0;
    int vconf_value = 0;
    int vconf_set_result = 0;
    int feature_result = 0;
    int feature_value = 2;
    int system_result = 0;
    std::map<std::string, std::string> launch_arguments;
    std::function<void(const std::string& event)> on_event;  // on the event's thread, unlocked
    // Makes the call, by `real`, or fails it. May throw from a write.
    std::function<long(const FileCall& call, const std::function<long()>& real)> on_file_call;
    device_power_state_changed_cb power_callback = nullptr;
    bool ignores_log = false;
    bool holds_writer = false;  // a signal does not wake it; set with the dump mutex held

    void Record(const std::string& event);
    // The events since the last call, "; " between them.
    std::string Take(bool of_this_thread_only = false);
    // What the service has published last.
    std::string Status();
    void SetStatus(const std::string& text);
    // Waits until `event` was recorded `count` times since Take(). False at the limit.
    [[nodiscard]] bool WaitFor(const std::string& event, long count = 1);

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::string status_;
    std::vector<std::pair<std::thread::id, std::string>> events_;
};

// The one fake; never destroyed, since threads of the service log until the process is gone.
PlatformFake& Platform();

std::string Hex(const Bytes& bytes);

// Runs `body` in a forked child, for what a process can do only once. Failed expectations in it
// fail the test; singletons and threads of the service end with it.
void InFreshProcess(const std::function<void()>& body);

}  // namespace test_support
