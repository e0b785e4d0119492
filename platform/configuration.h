#pragma once

#include <sys/types.h>

#include <optional>
#include <stdexcept>
#include <string>

#include "launch_check.h"

namespace port {

inline constexpr const char* kConfigurationFile = "/etc/trelvo/trelvo.conf";

// A configuration that cannot be believed. what() has a line for each fault, which names the file
// and the key.
class ConfigurationError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct Configuration {
    LaunchArguments launch;             // passes CheckFirstLaunch
    std::optional<char> log_threshold;  // a level letter
    std::optional<gid_t> group;         // that may read dumps
};

// Reads a file such as platform/systemd/trelvo.conf, which explains its keys. Throws
// ConfigurationError, also when the file cannot be read.
[[nodiscard]] Configuration ReadConfiguration(const std::string& path);

}  // namespace port
