#pragma once

#include <glib.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// Asks for a dump because of what is logged: some seconds after a line that matches, so that what
// follows it is in the dump as well, and at most one in so many seconds.
//
// Configured on the main thread before the compressor starts, which then shows it every line. The
// dump is asked for on the main loop.
class MatchTrigger {
public:
    struct Settings {
        // Items "TAG:LEVEL" or "TAG:LEVEL:TEXT", joined by "&": any tag for "*", the least level of
        // V, D, I, W, E and F, a text that the message holds.
        std::string items;
        unsigned delay = 2;  // seconds from the line to the dump
        unsigned rest = 60;  // seconds from one match that is answered to the next
    };

    static MatchTrigger& Instance();

    // Throws std::invalid_argument, which names the item that cannot be read; nothing has changed.
    void Enable(const Settings& settings);

    // REQUIRES: no lock is held.
    void Look(std::string_view tag, char level, std::string_view message) {
        if (!items_.empty() && Matches(tag, Rank(level), message)) {
            Ask();
        }
    }

private:
    struct Item {
        std::string tag;  // empty for any
        int rank;
        std::string text;  // empty for any
    };

    MatchTrigger() = default;

    // Counts from V up to F; 0 for any other letter.
    static int Rank(char level) {
        switch (level) {
            case 'D':
                return 1;
            case 'I':
                return 2;
            case 'W':
                return 3;
            case 'E':
                return 4;
            case 'F':
                return 5;
            default:
                return 0;
        }
    }
    static Item ReadItem(std::string_view text);
    [[nodiscard]] bool Matches(std::string_view tag, int rank, std::string_view message) const;
    void Ask();
    static gboolean OnDelayOver(gpointer self);

    std::vector<Item> items_;
    unsigned delay_ = 0;
    unsigned rest_ = 0;
    int64_t next_ = 0;  // monotonic microseconds before which a match is not answered
};
