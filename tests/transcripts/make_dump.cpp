// Writes a dump of the lines that it reads, which stand as `trelvoctl decode --monotonic` shows
// them:
//
//   make_dump FILE [VERSION [FIRST_DELTA [LATE]]]
//
// of the policy VERSION ("" for none), with a time delta in front of its first line, and logged
// LATE before the recorder took its last line; both in ms. "\xNN" is a byte of a message.
#include <cmath>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iostream>
#include <regex>
#include <string>

#include "support/dump_builder.h"

namespace {

int MakeDump(int argc, char** argv) {
    const auto argument = [&](int i) { return argc > i ? std::string(argv[i]) : std::string(); };
    const std::regex shown(R"(([0-9.]+) ([DIWEF])/(.*?) *\(P (\d+), T (\d+)\): (.*))");
    test_support::DumpBuilder dump(argument(2));
    int64_t delta_ms = std::atoi(argument(3).c_str());
    int64_t last_ms = 0;
    for (std::string line; std::getline(std::cin, line);) {
        std::smatch parts;
        if (!std::regex_match(line, parts, shown)) {
            std::fprintf(stderr, "make_dump: not a line: %s\n", line.c_str());
            return 2;
        }
        std::string text = parts[6];
        for (size_t at = 0; (at = text.find("\\x", at)) != std::string::npos; ++at) {
            text.replace(at, 4, test_support::FromHex(text.substr(at + 2, 2)));
        }
        const int64_t time_ms = std::llround(std::stod(parts[1]) * 1000);
        dump.Line(last_ms == 0 ? delta_ms : time_ms - last_ms, text,
                  parts[3].str() + "," + parts[4].str() + "/" + parts[5].str(), *parts[2].first);
        last_ms = time_ms;
    }
    std::ofstream(argument(1), std::ios::binary)
        << dump.Image(last_ms + std::atoi(argument(4).c_str()));
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return MakeDump(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "make_dump: %s\n", error.what());
        return 1;
    }
}
