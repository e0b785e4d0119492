#pragma once

// What the device fixes: every file, folder and key that the service uses without being told. Only
// constants, so that a port of the platform can prepare them.
namespace paths {

// Written by the capture, read and removed by the service; the rotated ones are the older.
inline constexpr const char* kCaptureFile = "/tmp/trelvo/RQB_Buffer";
inline constexpr const char* kRotatedCaptureFile = "/tmp/trelvo/RQB_Buffer.1";
inline constexpr int kRotatedCaptureFiles = 1;
// Where the capture answers when it has caught up with the log.
inline constexpr const char* kCaptureSocket = "/tmp/trelvo/RQB_Buffer.sync";
// Of the device's boot, before the service.
inline constexpr const char* kBootCaptureFile = "/tmp/trelvo/boot/RQB_Buffer";
inline constexpr const char* kRotatedBootCaptureFile = "/tmp/trelvo/boot/RQB_Buffer.1";

// A dump before it is in the folder that it is for.
inline constexpr const char* kTemporaryFolder = "/tmp/Trelvo_Dump";
inline constexpr const char* kTemporaryDump = "/tmp/Trelvo_Dump/trelvo_Temp.dump";

// Self-initiated dumps, for the collecting service, which is told when they exceed the limit in
// bytes.
inline constexpr const char* kCollectingFolder = "/opt/usr/share/svc-rk/dump/";
inline constexpr unsigned long long kCollectingLimit = 20971520;

// Policies: of the collecting service, and the one that the device has from the start.
inline constexpr const char* kServerPolicy = "/opt/usr/share/Trelvo/Server";
inline constexpr const char* kDefaultPolicy = "/opt/usr/share/Trelvo/Default";

// Keys of vconf.
inline constexpr const char* kUploadKey = "memory/trelvo/dlog_dump";
inline constexpr const char* kStatusKey = "memory/trelvo/status";

}  // namespace paths
