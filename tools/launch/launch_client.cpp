#include "launch/launch_client.h"

#include <gio/gio.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>

#include "platform/launch_interface.h"

namespace trelvo {

namespace {

template <auto Free>
struct Freer {
    template <typename T>
    void operator()(T* object) const {
        Free(object);
    }
};
template <typename T>
using Object = std::unique_ptr<T, Freer<g_object_unref>>;
using Error = std::unique_ptr<GError, Freer<g_error_free>>;
using Loop = std::unique_ptr<GMainLoop, Freer<g_main_loop_unref>>;
using Source = std::unique_ptr<GSource, Freer<g_source_unref>>;
using Variant = std::unique_ptr<GVariant, Freer<g_variant_unref>>;

// Cancels what is under way when the time is up.
class Deadline {
public:
    explicit Deadline(std::chrono::seconds timeout)
        : cancellable_(g_cancellable_new()),
          timer_(g_timeout_source_new_seconds(static_cast<guint>(timeout.count()))) {
        g_source_set_callback(timer_.get(), OnTimer, cancellable_.get(), nullptr);
        g_source_attach(timer_.get(), nullptr);
    }
    Deadline(const Deadline&) = delete;
    Deadline& operator=(const Deadline&) = delete;
    ~Deadline() { g_source_destroy(timer_.get()); }

    [[nodiscard]] GCancellable* Cancellable() const { return cancellable_.get(); }

private:
    static gboolean OnTimer(gpointer cancellable) {
        g_cancellable_cancel(G_CANCELLABLE(cancellable));
        return G_SOURCE_REMOVE;
    }

    Object<GCancellable> cancellable_;
    Source timer_;
};

// Runs the main loop until an operation that was started with OnReady and this has its result.
class Result {
public:
    static void OnReady(GObject* /*source*/, GAsyncResult* result, gpointer self) {
        auto* const waiting = static_cast<Result*>(self);
        waiting->result_.reset(G_ASYNC_RESULT(g_object_ref(result)));
        g_main_loop_quit(waiting->loop_.get());
    }

    [[nodiscard]] GAsyncResult* Wait() {
        if (!result_) {
            g_main_loop_run(loop_.get());
        }
        return result_.get();
    }

private:
    Loop loop_{g_main_loop_new(nullptr, FALSE)};
    Object<GAsyncResult> result_;
};

std::string NoService(const std::string& socket, const GError& error,
                      std::chrono::seconds timeout) {
    const bool late = g_error_matches(&error, G_IO_ERROR, G_IO_ERROR_CANCELLED) != FALSE;
    return "no service answers at " + socket + ": " +
           (late ? "nothing within " + std::to_string(timeout.count()) + " s" : error.message);
}

Object<GDBusConnection> Connect(const std::string& socket, const Deadline& deadline,
                                std::chrono::seconds timeout) {
    const std::unique_ptr<char, Freer<g_free>> path(g_dbus_address_escape_value(socket.c_str()));
    const std::string address = std::string("unix:path=") + path.get();
    Result result;
    g_dbus_connection_new_for_address(address.c_str(),
                                      G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT, nullptr,
                                      deadline.Cancellable(), Result::OnReady, &result);
    GError* failure = nullptr;
    Object<GDBusConnection> connection(
        g_dbus_connection_new_for_address_finish(result.Wait(), &failure));
    if (const Error error(failure); error) {
        throw LaunchError(NoService(socket, *error, timeout));
    }
    return connection;
}

}  // namespace

std::string RuntimeFolder() {
    if (geteuid() == 0) {
        return launch_interface::kRootFolder;
    }
    const char* const folder = std::getenv("XDG_RUNTIME_DIR");
    if (folder == nullptr || *folder != '/') {
        throw LaunchError("no service can be found: XDG_RUNTIME_DIR does not name a folder");
    }
    return std::string(folder) + "/" + launch_interface::kUserFolder;
}

std::string LaunchSocket() {
    return RuntimeFolder() + "/" + launch_interface::kSocketFile;
}

void SendLaunch(const std::string& socket, const std::map<std::string, std::string>& arguments,
                std::chrono::seconds timeout) {
    const Deadline deadline(timeout);
    const Object<GDBusConnection> connection = Connect(socket, deadline, timeout);

    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE("a{ss}"));
    for (const auto& [key, value] : arguments) {
        g_variant_builder_add(&builder, "{ss}", key.c_str(), value.c_str());
    }
    Result result;
    // The deadline alone bounds the call: its clock runs since before the connection.
    g_dbus_connection_call(
        connection.get(), nullptr, launch_interface::kObject, launch_interface::kInterface,
        launch_interface::kMethod, g_variant_new("(a{ss})", &builder), G_VARIANT_TYPE_UNIT,
        G_DBUS_CALL_FLAGS_NONE, G_MAXINT, deadline.Cancellable(), Result::OnReady, &result);
    GError* failure = nullptr;
    const Variant reply(g_dbus_connection_call_finish(connection.get(), result.Wait(), &failure));
    if (const Error error(failure); error) {
        const bool refused = g_dbus_error_is_remote_error(error.get()) != FALSE;
        static_cast<void>(g_dbus_error_strip_remote_error(error.get()));
        if (refused) {
            throw LaunchRefused(error->message);
        }
        throw LaunchError(NoService(socket, *error, timeout));
    }
}

}  // namespace trelvo
