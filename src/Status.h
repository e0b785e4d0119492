#pragma once

#include <string>

// What the service tells about itself: a text of "name=value" lines under one key of the platform's
// key store, for whoever watches it. It is a courtesy; nothing of the service depends on it, and a
// platform whose store holds no texts does without.
//
// Published at most once a second, when something has changed, and at once when a dump is asked for
// or has ended. Any thread may call. Takes the buffer mutex, if it is free, after its own.
namespace status {

// A dump was asked for; `trigger` says by what: "request", "timer", "power-off", "full", "match".
// REQUIRES: the dump mutex.
void DumpPending(const char* trigger);

// The attempt ended. `path` is the dump's, `error` is empty when it is there as a whole.
// REQUIRES: the dump mutex.
void DumpEnded(const std::string& path, const std::string& error);

// A line matched but a dump for it was pending or came too soon after the last one.
void MatchSuppressed();

// Publishes what has changed, unless that was done within the last second.
void Refresh();

}  // namespace status
