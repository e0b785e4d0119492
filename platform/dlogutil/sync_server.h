#pragma once

#include <poll.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "dlogutil/journal_entry.h"
#include "handles.h"

namespace dlogutil {

// Tells clients when all that was logged before they connected has been written. A client connects,
// gets one byte, 'k', and is closed.
//
// The clients that wait are served in rounds: the journal is made to take all that was sent to it,
// then the caller reads it to its end and writes the lines. Clients that come meanwhile are for the
// next round. Nothing here blocks.
//
// Root asks the journal itself, as `journalctl --sync` does. Others send it two entries of their
// own, one over each socket that keeps the order of what was sent, and wait until both come back.
// At the level of information: a journal may be told to store no debug messages.
class SyncServer {
public:
    // Takes a listening socket that does not block.
    explicit SyncServer(port::UniqueFd listener) : listener_(std::move(listener)) {}

    // What Process() is to be called for.
    void AddTo(std::vector<pollfd>& waits) const;
    // For how many milliseconds to wait for it at most, -1 without limit.
    [[nodiscard]] int Timeout() const;
    // Goes on as far as possible.
    void Process();

    // Whether an entry is one of these, whoever sent it. They are not written.
    [[nodiscard]] bool TakeMarker(const Fields& fields);
    // Whether the journal has taken all: what it has now is to be read and written before Answer().
    [[nodiscard]] bool NeedsReading() const { return phase_ == Phase::kReading; }
    void Answer();

private:
    enum class Phase { kIdle, kAsking, kMarking, kReading };
    using Clock = std::chrono::steady_clock;

    struct Marker {
        const char* socket;
        const char* before;  // what stands before and after the id
        const char* after;
        port::UniqueFd fd;
        std::string id;
        bool is_sent = true;
        bool is_read = true;
    };

    void Accept();
    void DropGoneClients();
    void Ask();
    void ReadReply();
    void StartMarking();
    void SendMarkers();
    void EndMarking();

    port::UniqueFd listener_;
    std::vector<port::UniqueFd> round_;
    std::vector<port::UniqueFd> next_round_;
    Phase phase_ = Phase::kIdle;
    port::UniqueFd journal_;  // while asking
    std::string reply_;
    std::array<Marker, 2> markers_{
        {{"/run/systemd/journal/socket",
          "PRIORITY=6\nSYSLOG_IDENTIFIER=trelvo.sync\nMESSAGE=",
          "\n",
          {},
          {}},
         {"/run/systemd/journal/dev-log", "<14>trelvo.sync: ", "", {}, {}}}};
    Clock::time_point marked_;
};

}  // namespace dlogutil
