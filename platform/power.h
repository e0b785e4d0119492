#pragma once

#include <string>

namespace port {

// Why no power event could be heard; empty when the system bus takes a connection.
[[nodiscard]] std::string PowerFault();

// Tells the subscriber that the machine goes down, as if it did. False without one.
bool AnnouncePowerDown();

}  // namespace port
