#pragma once

#include <gio/gio.h>

#include <functional>
#include <list>
#include <string>
#include <vector>

#include "handles.h"
#include "launch_check.h"

namespace port {

// Takes launch requests from processes of the same user and of root: a D-Bus peer on a Unix socket,
// so no bus daemon is needed. launch_interface.h is its other half.
//
// The reply is sent when the handler has returned: an error with a line for each fault that it
// found. A request over the limits, or with an empty key, is answered with an error and not
// handled.
//
// Owns the socket and every connection. All of it runs on the thread that runs the default main
// context, which must be the one that makes and destroys the server.
class LaunchServer {
public:
    using Handler = std::function<std::vector<Fault>(const LaunchArguments&)>;

    // REQUIRES: nothing exists at `socket`. Throws std::runtime_error when it cannot listen there.
    LaunchServer(const std::string& socket, Handler handler);
    LaunchServer(const LaunchServer&) = delete;
    LaunchServer& operator=(const LaunchServer&) = delete;
    ~LaunchServer();

private:
    struct Peer {
        Handle<GDBusConnection, g_object_unref> connection;
        guint object;  // registration
    };

    static gboolean OnConnection(GDBusServer* server, GDBusConnection* connection, gpointer self);
    static void OnClosed(GDBusConnection* connection, gboolean remote, GError* error,
                         gpointer self);
    static void OnCall(GDBusConnection* connection, const char* sender, const char* object,
                       const char* interface, const char* method, GVariant* parameters,
                       GDBusMethodInvocation* invocation, gpointer self);

    Handler handler_;
    Handle<GDBusNodeInfo, g_dbus_node_info_unref> description_;
    Handle<GDBusServer, g_object_unref> server_;
    std::list<Peer> peers_;
};

}  // namespace port
