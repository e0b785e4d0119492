// Captured lines through the pipeline, against a model of it: the same exceptions, the same dumps.
//
// Lines end at line feeds; the byte 1E stands for a line feed within a line. The size of the input
// chooses the limit and what it counts. Pages have 1 KiB.

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <vector>

#include "CDBOperations.h"
#include "CDataProvider.h"
#include "support/fuzz_support.h"
#include "support/line_model.h"
#include "support/process.h"

namespace {

const test_support::LineModel kEmpty("1.0", {{{"T", "known"}, {0xB0, 0x01}}, {{"T", "odd"}, {}}});

// With the limit counting memory, how much is kept depends on how well it packs: all that is asked
// for is the newest records, each from whom it was.
void RequireTheNewestOf(const test_support::LineModel& model) {
    const std::vector<std::string> all = fuzz::Decode(model.Dump());
    const std::vector<std::string> kept = fuzz::Decode(fuzz::Snapshot(false));
    fuzz::Require(kept.size() <= all.size() && std::equal(kept.rbegin(), kept.rend(), all.rbegin()),
                  "not the newest records");
}

void Prepare() {
    const std::filesystem::path folder = "/opt/usr/share/Trelvo/Default";
    std::filesystem::create_directories(folder);
    test_support::WriteFile(folder / "policy_version.xml",
                            "<a><policy version='1.0'/><db logtag='T' name='t.db'/></a>");
    test_support::MakeCodeTable(folder / "t.db", "('known', '1011000000000001'), ('odd', '101')");
    CDBOperations::Instance()->CreateHashMap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool prepared = (Prepare(), true);
    static_cast<void>(prepared);
    test_support::LineModel model = kEmpty;
    const bool counts_memory = size % 4 == 3;
    // Few lines fill it; tables and an open page take 5 KiB of memory.
    const size_t limit_kib = counts_memory ? 6 : size % 4 + 1;
    CDataProvider::Instance()->SetHistorySize(limit_kib);
    CDataProvider::Instance()->SetBufferCount(counts_memory);
    if (!counts_memory) {
        model.SetLimit(limit_kib * 1024);
    }
    std::istringstream text(std::string(data, data + size));
    for (std::string line; std::getline(text, line);) {
        std::replace(line.begin(), line.end(), '\x1e', '\n');
        const std::string expected = model.Feed(line);
        const std::string thrown = fuzz::Feed(line);
        fuzz::Require(thrown == expected, "threw '" + thrown + "', not '" + expected + "'");
    }
    if (counts_memory) {
        RequireTheNewestOf(model);
        static_cast<void>(fuzz::Snapshot(true));
    } else {
        fuzz::Require(fuzz::Snapshot(false) == model.Dump(), "another dump than the model's");
        fuzz::Require(fuzz::Snapshot(true) == model.Dump(), "the second dump is another one");
    }
    fuzz::Require(fuzz::Snapshot(true) == kEmpty.Dump(), "the buffer was not emptied");
    return 0;
}
