#ifndef TRELVO_PLATFORM_LAUNCH_SERVER_H
#define TRELVO_PLATFORM_LAUNCH_SERVER_H

#include <gio/gio.h>

#include <functional>
#include <list>
#include <map>
#include <string>

#include "handles.h"

namespace port {

using LaunchArguments = std::map<std::string, std::string>;

// Takes launch requests from processes of the same user and of root: a D-Bus peer on a Unix socket,
// so no bus daemon is needed.
//
//   object /trelvo/Launch, interface trelvo.Launch, method Launch(a{ss} arguments) -> ()
//
// The reply is sent when the handler has returned. A request over the limits (64 keys, 64 KiB of
// keys and values together, no empty key) is answered with an error and not handled.
//
// Owns the socket and every connection. All of it runs on the thread that runs the default main
// context, which must be the one that makes and destroys the server.
class LaunchServer {
public:
    using Handler = std::function<void(const LaunchArguments&)>;

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

#endif
