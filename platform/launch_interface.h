#pragma once

// What the service and its clients agree on: where it listens, what it takes, and where it says how
// it is. Only constants, so that a client needs nothing else of the service.

#include <cstddef>

namespace launch_interface {

// A D-Bus peer on a Unix socket in the runtime folder:
//
//   object /trelvo/Launch, interface trelvo.Launch, method Launch(a{ss} arguments) -> ()
//
// A request that cannot be carried out is answered with the error InvalidArgs, whose text has a
// line for each fault.
inline constexpr const char* kObject = "/trelvo/Launch";
inline constexpr const char* kInterface = "trelvo.Launch";
inline constexpr const char* kMethod = "Launch";
inline constexpr size_t kMaxKeys = 64;
inline constexpr size_t kMaxBytes = size_t{64} * 1024;  // of keys and values together

// The runtime folder: root's is fixed, everybody else's is `trelvo` in $XDG_RUNTIME_DIR.
inline constexpr const char* kRootFolder = "/run/trelvo";
inline constexpr const char* kUserFolder = "trelvo";

// In the runtime folder.
inline constexpr const char* kSocketFile = "launch.sock";
inline constexpr const char* kLockFile = "lock";  // held by the service, holds its process id
// Texts of lines key=value, replaced as a whole.
inline constexpr const char* kStatusFile = "vconf/memory/trelvo/status";
inline constexpr const char* kCaptureFile = "vconf/memory/trelvo/capture";
inline constexpr const char* kCollectorFile = "vconf/memory/trelvo/collector";
// 0, or 1 while the collecting service is to fetch dumps.
inline constexpr const char* kUploadFile = "vconf/memory/trelvo/dlog_dump";

}  // namespace launch_interface
