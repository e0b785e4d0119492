#include "support/fake_logind.h"

#include <fcntl.h>
#include <gio/gunixfdlist.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

namespace test_support {
namespace {

constexpr const char* kAddress = "unix:path=/run/test_bus";
constexpr const char* kOutput = "/run/test_bus.out";

}  // namespace

FakeLogind::FakeLogind()
    : daemon_({"dbus-daemon", "--session", "--nofork", "--nopidfile", "--print-address",
               std::string("--address=") + kAddress},
              kOutput, "/run/test_bus.err"),
      connection_(nullptr, g_object_unref) {
    // It tells its address when it listens.
    if (!WaitForChange("/run", [] { return !ReadFile(kOutput).empty(); })) {
        throw std::runtime_error("no dbus-daemon");
    }
    setenv("DBUS_SYSTEM_BUS_ADDRESS", kAddress, 1);
    connection_.reset(g_dbus_connection_new_for_address_sync(
        kAddress,
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, nullptr));
    g_dbus_connection_add_filter(connection_.get(), Filter, this, nullptr);
    g_variant_unref(g_dbus_connection_call_sync(
        connection_.get(), "org.freedesktop.DBus", "/", "org.freedesktop.DBus", "RequestName",
        g_variant_new("(su)", "org.freedesktop.login1", 0U), nullptr, G_DBUS_CALL_FLAGS_NONE, -1,
        nullptr, nullptr));
}

FakeLogind::~FakeLogind() {
    g_dbus_connection_close_sync(connection_.get(), nullptr, nullptr);
}

bool FakeLogind::WaitForInhibitor() {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, kLimit, [this] { return static_cast<bool>(inhibitor_); });
}

bool FakeLogind::WaitForRelease() {
    const std::lock_guard<std::mutex> lock(mutex_);
    const bool released = WaitForInput(inhibitor_.Get());
    inhibitor_ = {};
    return released;
}

void FakeLogind::Emit(const char* signal, bool starts) {
    g_dbus_connection_emit_signal(connection_.get(), nullptr, "/org/freedesktop/login1",
                                  "org.freedesktop.login1.Manager", signal,
                                  g_variant_new("(b)", starts), nullptr);
}

GDBusMessage* FakeLogind::Filter(GDBusConnection* /*connection*/, GDBusMessage* message,
                                 gboolean incoming, gpointer self) {
    const char* const member = g_dbus_message_get_member(message);
    if (incoming == FALSE || member == nullptr || std::strcmp(member, "Inhibit") != 0) {
        return message;
    }
    static_cast<FakeLogind*>(self)->Inhibit(message);
    g_object_unref(message);
    return nullptr;
}

void FakeLogind::Inhibit(GDBusMessage* call) {
    const char* what = nullptr;
    g_variant_get_child(g_dbus_message_get_body(call), 0, "&s", &what);
    if (std::strcmp(what, "shutdown:sleep") != 0) {
        return;  // and the test waits in vain
    }
    if (refuses_.exchange(false)) {
        g_autoptr(GDBusMessage) refusal = g_dbus_message_new_method_error_literal(
            call, "org.freedesktop.DBus.Error.AccessDenied", "not yet");
        g_dbus_connection_send_message(connection_.get(), refusal, G_DBUS_SEND_MESSAGE_FLAGS_NONE,
                                       nullptr, nullptr);
        Emit("PrepareForSleep", false);
        return;
    }
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        ThrowErrno("pipe");
    }
    g_autoptr(GUnixFDList) fds = g_unix_fd_list_new_from_array(&ends[1], 1);
    g_autoptr(GDBusMessage) reply = g_dbus_message_new_method_reply(call);
    g_dbus_message_set_body(reply, g_variant_new("(h)", 0));
    g_dbus_message_set_unix_fd_list(reply, fds);
    const std::lock_guard<std::mutex> lock(mutex_);
    inhibitor_ = port::UniqueFd(ends[0]);
    g_dbus_connection_send_message(connection_.get(), reply, G_DBUS_SEND_MESSAGE_FLAGS_NONE,
                                   nullptr, nullptr);
    changed_.notify_all();
}

}  // namespace test_support
