#pragma once

#include <chrono>
#include <map>
#include <stdexcept>
#include <string>

namespace trelvo {

// A launch request that was not handled. what() is one line that names the socket.
class LaunchError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The service answered that the request cannot be carried out. what() has a line for each fault.
class LaunchRefused : public LaunchError {
public:
    using LaunchError::LaunchError;
};

// The folder of this user's service. Throws LaunchError when the environment does not say.
[[nodiscard]] std::string RuntimeFolder();
// Where this user's service listens. Throws LaunchError when the environment does not say.
[[nodiscard]] std::string LaunchSocket();

// Hands launch arguments, all of them in UTF-8, to the service at the socket and returns when it
// has handled them. Throws LaunchError, at the latest after the time-out.
void SendLaunch(const std::string& socket, const std::map<std::string, std::string>& arguments,
                std::chrono::seconds timeout);

}  // namespace trelvo
