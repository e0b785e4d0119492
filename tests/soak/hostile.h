#pragma once

#include <chrono>

namespace test_support {

// An honest program logs numbered lines while another user floods the journal with whatever is
// known to hurt: sources without end, thread ids made to collide, entries of tens of thousands of
// lines, huge fields, delimiters, tags of the recorder's own. Meanwhile the capture's file system
// fills up and the capture is stopped, for some seconds each. Every number must come out of the
// dumps once, or the capture must say that it lost entries, and how many. Returns 0, or 1 after
// printing what is wrong. REQUIRES: the private namespace.
[[nodiscard]] int RunHostileSoak(std::chrono::seconds length);

}  // namespace test_support
