// Captured lines through the pipeline, against a model of it: the same exceptions, the same dumps.
//
// Lines end at line feeds; the byte 1E stands for a line feed within a line.

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "CDBOperations.h"
#include "CDataProvider.h"
#include "support/line_model.h"
#include "support/process.h"

namespace {

constexpr std::size_t kLimitKiB = 1;  // so that few lines fill the buffer

const fuzz::LineModel kEmpty("1.0", {{{"T", "known"}, {0xB0, 0x01}}, {{"T", "odd"}, {}}},
                             kLimitKiB * 1024);

void Prepare() {
    const std::filesystem::path folder = "/opt/usr/share/Trelvo/Default";
    std::filesystem::create_directories(folder);
    test_support::WriteFile(folder / "policy_version.xml",
                            "<a><policy version='1.0'/><db logtag='T' name='t.db'/></a>");
    test_support::MakeCodeTable(folder / "t.db", "('known', '1011000000000001'), ('odd', '101')");
    CDBOperations::Instance()->CreateHashMap();
    CDataProvider::Instance()->SetBufferSize(kLimitKiB);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool prepared = (Prepare(), true);
    static_cast<void>(prepared);
    fuzz::LineModel model = kEmpty;
    std::istringstream text(std::string(data, data + size));
    for (std::string line; std::getline(text, line);) {
        std::replace(line.begin(), line.end(), '\x1e', '\n');
        const std::string expected = model.Feed(line);
        const std::string thrown = fuzz::Feed(line);
        fuzz::Require(thrown == expected, "threw '" + thrown + "', not '" + expected + "'");
    }
    fuzz::Require(fuzz::Snapshot(false) == model.Dump(), "another dump than the model's");
    fuzz::Require(fuzz::Snapshot(true) == model.Dump(), "the second dump is another one");
    fuzz::Require(fuzz::Snapshot(true) == kEmpty.Dump(), "the buffer was not emptied");
    return 0;
}
