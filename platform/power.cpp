#include "device/power-internal.h"

#include <gio/gio.h>
#include <gio/gunixfdlist.h>

#include <cerrno>
#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>

#include "dump_progress.h"
#include "handles.h"
#include "power.h"

namespace {

constexpr const char* kName = "org.freedesktop.login1";
constexpr const char* kObject = "/org/freedesktop/login1";
constexpr const char* kInterface = "org.freedesktop.login1.Manager";

// The callback only asks another thread for a dump. That one gets most of the 5 seconds that logind
// allows by default to say that it is written.
constexpr gint64 kGraceMilliseconds = 4000;

using Connection = port::Handle<GDBusConnection, g_object_unref>;

// Throws std::runtime_error.
Connection ConnectToSystemBus() {
    g_autoptr(GError) error = nullptr;
    Connection connection;
    const port::Handle<char, g_free> address(
        g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, &error));
    if (address) {
        const auto flags =
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
        connection.reset(
            g_dbus_connection_new_for_address_sync(address.get(), flags, nullptr, nullptr, &error));
    }
    if (!connection) {
        throw std::runtime_error(error->message);
    }
    return connection;
}

// Hears from logind that the machine goes down or to sleep, and delays that until a dump is
// written.
//
// Owns a connection of its own to the system bus (the shared one would end the process when the bus
// goes) and the delay inhibitor, a file descriptor that logind waits for. Where logind gives none
// the callback still comes, only without the delay: a dump that may be cut is better than none.
// Everything runs on the default main context's thread.
class PowerSubscription {
public:
    // Throws std::runtime_error where there is no system bus.
    PowerSubscription(device_power_state_changed_cb callback, void* user_data);
    PowerSubscription(const PowerSubscription&) = delete;
    PowerSubscription& operator=(const PowerSubscription&) = delete;
    ~PowerSubscription();

    device_power_state_changed_cb Callback() const { return callback_; }

    void AnnouncePowerDown();

private:
    static void OnPrepare(GDBusConnection* connection, const char* sender, const char* object,
                          const char* interface, const char* signal, GVariant* parameters,
                          gpointer self);
    static void OnInhibited(GObject* connection, GAsyncResult* result, gpointer self);

    // Asks logind without waiting: a launch must not hang on another service.
    void TakeInhibitor();

    device_power_state_changed_cb callback_;
    void* user_data_;
    Connection connection_;
    port::Handle<GCancellable, g_object_unref> cancellable_{g_cancellable_new()};
    guint shutdown_signal_ = 0;
    guint sleep_signal_ = 0;
    std::optional<port::DumpWait> grace_;  // while logind waits for the dump
    bool asked_ = false;
    port::UniqueFd inhibitor_;
};

PowerSubscription::PowerSubscription(device_power_state_changed_cb callback, void* user_data)
    : callback_(callback), user_data_(user_data), connection_(ConnectToSystemBus()) {
    const auto subscribe = [this](const char* signal) {
        return g_dbus_connection_signal_subscribe(connection_.get(), kName, kInterface, signal,
                                                  kObject, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
                                                  OnPrepare, this, nullptr);
    };
    shutdown_signal_ = subscribe("PrepareForShutdown");
    sleep_signal_ = subscribe("PrepareForSleep");
    TakeInhibitor();
}

PowerSubscription::~PowerSubscription() {
    g_cancellable_cancel(cancellable_.get());
    g_dbus_connection_signal_unsubscribe(connection_.get(), shutdown_signal_);
    g_dbus_connection_signal_unsubscribe(connection_.get(), sleep_signal_);
    static_cast<void>(g_dbus_connection_close_sync(connection_.get(), nullptr, nullptr));
}

void PowerSubscription::OnPrepare(GDBusConnection* /*connection*/, const char* /*sender*/,
                                  const char* /*object*/, const char* /*interface*/,
                                  const char* /*signal*/, GVariant* parameters, gpointer self) {
    auto* const power = static_cast<PowerSubscription*>(self);
    if (g_variant_is_of_type(parameters, G_VARIANT_TYPE("(b)")) == FALSE) {
        return;
    }
    gboolean starts = FALSE;
    g_variant_get(parameters, "(b)", &starts);
    power->grace_.reset();
    if (starts == FALSE) {  // woken up, or called off
        power->TakeInhibitor();
        return;
    }
    const port::DumpProgress before = port::PublishedProgress();
    power->AnnouncePowerDown();
    power->grace_.emplace(before, kGraceMilliseconds, [power] {
        power->inhibitor_ = {};
        power->grace_.reset();
    });
}

void PowerSubscription::AnnouncePowerDown() {
    _device_power_state_info info{DEVICE_POWER_STATE_NORMAL, DEVICE_POWER_STATE_STANDBY, 0};
    static_cast<void>(callback_(&info, user_data_));
}

void PowerSubscription::TakeInhibitor() {
    if (inhibitor_ || asked_) {
        return;
    }
    asked_ = true;
    g_dbus_connection_call_with_unix_fd_list(
        connection_.get(), kName, kObject, kInterface, "Inhibit",
        g_variant_new("(ssss)", "shutdown:sleep", "trelvo", "Writing the last log lines to a dump",
                      "delay"),
        G_VARIANT_TYPE("(h)"), G_DBUS_CALL_FLAGS_NONE, -1, nullptr, cancellable_.get(), OnInhibited,
        this);
}

void PowerSubscription::OnInhibited(GObject* connection, GAsyncResult* result, gpointer self) {
    g_autoptr(GError) error = nullptr;
    g_autoptr(GUnixFDList) fds = nullptr;
    const port::Handle<GVariant, g_variant_unref> reply(
        g_dbus_connection_call_with_unix_fd_list_finish(G_DBUS_CONNECTION(connection), &fds, result,
                                                        &error));
    if (g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CANCELLED) != FALSE) {
        return;  // `self` is gone
    }
    auto* const power = static_cast<PowerSubscription*>(self);
    power->asked_ = false;
    if (reply && fds != nullptr) {
        gint32 index = 0;
        g_variant_get(reply.get(), "(h)", &index);
        power->inhibitor_ = port::UniqueFd(g_unix_fd_list_get(fds, index, nullptr));
    }
}

std::unique_ptr<PowerSubscription> subscription;

}  // namespace

namespace port {

std::string PowerFault() {
    try {
        const Connection connection = ConnectToSystemBus();
        static_cast<void>(g_dbus_connection_close_sync(connection.get(), nullptr, nullptr));
        return {};
    } catch (const std::runtime_error& error) {
        return error.what();
    }
}

bool AnnouncePowerDown() {
    if (subscription == nullptr) {
        return false;
    }
    subscription->AnnouncePowerDown();
    return true;
}

}  // namespace port

int device_power_subscribe_state_changed_event(device_power_state_changed_cb callback,
                                               void* user_data) {
    if (callback == nullptr) {
        return -EINVAL;
    }
    if (subscription != nullptr) {
        return -EALREADY;
    }
    try {
        subscription = std::make_unique<PowerSubscription>(callback, user_data);
        return 0;
    } catch (const std::exception&) {
        return -ENOTCONN;
    }
}

int device_power_unsubscribe_state_changed_event(device_power_state_changed_cb callback) {
    if (subscription == nullptr || subscription->Callback() != callback) {
        return -EINVAL;
    }
    subscription.reset();
    return 0;
}
