#pragma once

#include <cstdint>
#include <string>

#include "support/image.h"

namespace fuzz {

using test_support::Bytes;
using test_support::Decode;
using test_support::Snapshot;  // a consuming one lets the next input start afresh

// Ends the program, which the fuzzer takes for a fault, unless `holds`.
void Require(bool holds, const std::string& what);

// Feeds a line to the service's pipeline. Returns "type: what()" of what it throws, "" otherwise.
// The buffer mutex, which an exception leaves held, is free again afterwards.
std::string Feed(std::string line);

// Makes a member that is not public reachable, as Get(Tag{}):
//
//   struct Tag { friend auto Get(Tag); };
//   template struct Reveal<Tag, &Class::member>;
template <typename Tag, auto Member>
struct Reveal {
    friend auto Get(Tag /*tag*/) { return Member; }
};

}  // namespace fuzz
