#include "launch_server.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "launch_interface.h"

namespace port {
namespace {

using launch_interface::kMaxBytes;
using launch_interface::kMaxKeys;
using launch_interface::kObject;

constexpr const char* kDescription = R"(
<node>
  <interface name='trelvo.Launch'>
    <method name='Launch'><arg type='a{ss}' name='arguments' direction='in'/></method>
  </interface>
</node>)";

constexpr size_t kMaxPeers = 16;

gboolean AllowMechanism(GDBusAuthObserver* /*observer*/, const char* mechanism, gpointer /*data*/) {
    return std::strcmp(mechanism, "EXTERNAL") == 0 ? TRUE : FALSE;
}

gboolean AuthorizePeer(GDBusAuthObserver* /*observer*/, GIOStream* /*stream*/,
                       GCredentials* credentials, gpointer /*data*/) {
    if (credentials == nullptr) {
        return FALSE;
    }
    const uid_t user = g_credentials_get_unix_user(credentials, nullptr);
    return user == geteuid() || user == 0 ? TRUE : FALSE;
}

// Throws std::invalid_argument with the limit that the request breaks.
LaunchArguments ReadArguments(GVariant* parameters) {
    const Handle<GVariant, g_variant_unref> entries(g_variant_get_child_value(parameters, 0));
    if (g_variant_n_children(entries.get()) > kMaxKeys) {
        throw std::invalid_argument("a launch takes at most " + std::to_string(kMaxKeys) + " keys");
    }
    LaunchArguments arguments;
    size_t bytes = 0;
    GVariantIter iterator;
    g_variant_iter_init(&iterator, entries.get());
    const char* key = nullptr;
    const char* value = nullptr;
    while (g_variant_iter_next(&iterator, "{&s&s}", &key, &value) != FALSE) {
        bytes += std::strlen(key) + std::strlen(value);
        if (*key == '\0' || bytes > kMaxBytes) {
            throw std::invalid_argument(*key == '\0' ? "a launch key is empty"
                                                     : "a launch takes at most " +
                                                           std::to_string(kMaxBytes) + " bytes");
        }
        arguments[key] = value;
    }
    return arguments;
}

}  // namespace

LaunchServer::LaunchServer(const std::string& socket, Handler handler)
    : handler_(std::move(handler)),
      description_(g_dbus_node_info_new_for_xml(kDescription, nullptr)) {
    const Handle<char, g_free> path(g_dbus_address_escape_value(socket.c_str()));
    const Handle<char, g_free> guid(g_dbus_generate_guid());
    const Handle<GDBusAuthObserver, g_object_unref> observer(g_dbus_auth_observer_new());
    g_signal_connect(observer.get(), "allow-mechanism", G_CALLBACK(AllowMechanism), nullptr);
    g_signal_connect(observer.get(), "authorize-authenticated-peer", G_CALLBACK(AuthorizePeer),
                     nullptr);
    g_autoptr(GError) error = nullptr;
    server_.reset(g_dbus_server_new_sync((std::string("unix:path=") + path.get()).c_str(),
                                         G_DBUS_SERVER_FLAGS_NONE, guid.get(), observer.get(),
                                         nullptr, &error));
    if (!server_) {
        throw std::runtime_error(socket + ": " + error->message);
    }
    g_signal_connect(server_.get(), "new-connection", G_CALLBACK(OnConnection), this);
    g_dbus_server_start(server_.get());
}

LaunchServer::~LaunchServer() {
    g_signal_handlers_disconnect_by_data(server_.get(), this);
    g_dbus_server_stop(server_.get());  // also removes the socket
    for (const Peer& peer : peers_) {
        GDBusConnection* const connection = peer.connection.get();
        g_signal_handlers_disconnect_by_data(connection, this);
        g_dbus_connection_unregister_object(connection, peer.object);
        // The request that ended the service still gets its reply; a peer that is gone does not
        // matter.
        static_cast<void>(g_dbus_connection_flush_sync(connection, nullptr, nullptr));
        static_cast<void>(g_dbus_connection_close_sync(connection, nullptr, nullptr));
    }
}

gboolean LaunchServer::OnConnection(GDBusServer* /*server*/, GDBusConnection* connection,
                                    gpointer self) {
    static const GDBusInterfaceVTable kCalls = {OnCall, nullptr, nullptr, {}};
    auto* const launch = static_cast<LaunchServer*>(self);
    if (launch->peers_.size() >= kMaxPeers) {
        return FALSE;  // which closes it
    }
    const guint object = g_dbus_connection_register_object(
        connection, kObject, launch->description_->interfaces[0], &kCalls, self, nullptr, nullptr);
    g_signal_connect(connection, "closed", G_CALLBACK(OnClosed), self);
    launch->peers_.push_back({Handle<GDBusConnection, g_object_unref>(
                                  static_cast<GDBusConnection*>(g_object_ref(connection))),
                              object});
    return TRUE;
}

void LaunchServer::OnClosed(GDBusConnection* connection, gboolean /*remote*/, GError* /*error*/,
                            gpointer self) {
    static_cast<LaunchServer*>(self)->peers_.remove_if(
        [connection](const Peer& peer) { return peer.connection.get() == connection; });
}

void LaunchServer::OnCall(GDBusConnection* /*connection*/, const char* /*sender*/,
                          const char* /*object*/, const char* /*interface*/, const char* /*method*/,
                          GVariant* parameters, GDBusMethodInvocation* invocation, gpointer self) {
    std::string refusal;
    try {
        const auto faults = static_cast<LaunchServer*>(self)->handler_(ReadArguments(parameters));
        for (const Fault& fault : faults) {
            refusal += (refusal.empty() ? "" : "\n") + fault.key + ": " + fault.text;
        }
    } catch (const std::invalid_argument& refused) {
        refusal = refused.what();
    }
    if (!refusal.empty()) {
        g_dbus_method_invocation_return_error_literal(invocation, G_DBUS_ERROR,
                                                      G_DBUS_ERROR_INVALID_ARGS, refusal.c_str());
        return;
    }
    g_dbus_method_invocation_return_value(invocation, nullptr);
}

}  // namespace port
