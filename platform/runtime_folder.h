#pragma once

#include <string>

namespace port {

// The folder that one user's service and its tools share until the next boot: /run/trelvo for
// root, $XDG_RUNTIME_DIR/trelvo for everybody else. Made with mode 0700 when absent.
//
// Throws std::runtime_error, which names the folder, when it cannot be made or is not this user's
// alone: what lies in it decides who may command the service.
[[nodiscard]] std::string RuntimeFolder();

}  // namespace port
