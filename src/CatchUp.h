#pragma once

#include <boost/chrono/duration.hpp>
#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>

#include "FileDescriptor.h"

// Where a dump waits for the lines that were logged before it was asked for.
//
// Without it such a line may be on its way for a second and more: in the log, in the capture, or in
// a file that the reader looks at next. The dump writer asks and waits, for a bounded time; the
// reader has the capture catch up, if that one can, and hands on what there is.
//
// A capture that can catch up listens at a socket beside its file. It ends a connection, after a
// byte, when all that was logged before the connection was made is in the file. One that ends
// without the byte has died, and is asked again once it is back. No socket, no waiting for it: the
// reader then hands on what the capture has written so far.
class CatchUp {
public:
    static CatchUp& Instance();

    // --- The dump writer's side ----------------------------------------------------------------

    // Returns when the reader has caught up, when it cannot because it is not following or waits
    // for a dump itself, or after `limit`.
    void Wait(boost::chrono::milliseconds limit);
    // Whether the reader had caught up when that returned.
    bool HasCaughtUp();

    // --- The reader's side, all on its thread --------------------------------------------------

    // The reader follows the capture from here on, or does no more.
    void SetFollowing(bool isFollowing);
    // While it lives the reader waits for a dump: nobody is to wait for the reader.
    class WaitsForDump {
    public:
        WaitsForDump() { Instance().SetBusy(true); }
        // A lock that cannot be had would end the process, as everywhere.
        ~WaitsForDump() { Instance().SetBusy(false); }  // NOLINT(bugprone-exception-escape)
        WaitsForDump(const WaitsForDump&) = delete;
        WaitsForDump& operator=(const WaitsForDump&) = delete;
    };

    // To be called after each pass: the pause until the next one, which somebody who waits ends
    // early. `isComplete` says that the pass has read all that there was. Throws
    // boost::thread_interrupted.
    void Pause(boost::chrono::milliseconds pause, bool isComplete);

private:
    enum class State {
        kIdle,      // nobody waits, or nobody could be helped
        kAsked,     // the writer waits, the reader does not know yet
        kCatching,  // the capture is catching up
        kReading    // the capture has: a complete pass from now on is the last
    };

    CatchUp() = default;
    ~CatchUp() = delete;

    void SetBusy(bool isBusy);
    enum class Capture {
        kAsked,   // over connection_
        kCannot,  // catch up: it has no socket
        kDown     // between two starts of it
    };
    Capture Ask();

    boost::mutex mutex_;
    boost::condition_variable changed_;
    State state_ = State::kIdle;
    bool isFollowing_ = false;
    bool isBusy_ = false;
    bool hasCaughtUp_ = false;

    FileDescriptor connection_;  // to the capture; the reader's own
};
