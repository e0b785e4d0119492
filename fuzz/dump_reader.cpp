// Random bytes for trelvoctl's reader of dumps: it ends, its memory follows the input (the
// fuzzer's own limit), and its two ways of reading agree.

#include <memory>
#include <system_error>

#include "dump/dump_reader.h"
#include "support/fuzz_support.h"
#include "support/process.h"

using namespace trelvo;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // A file, which may be a compressed one.
    test_support::WriteFile("/tmp/input", std::string(data, data + size));
    try {
        const std::unique_ptr<Input> source = OpenInput("/tmp/input");
        DumpReader reader(*source);
        const Extent extent = reader.Measure();
        Record record;
        uint64_t records = 0;
        int64_t span = 0;
        try {
            while (reader.Next(record)) {
                fuzz::Require(record.end_offset > record.offset && record.delta_ms >= 0,
                              "an impossible record");
                span += records++ == 0 ? 0 : record.delta_ms;
            }
            fuzz::Require(!extent.damage, "damage is not seen at the second reading");
        } catch (const DamageError& error) {
            fuzz::Require(extent.damage && extent.damage->Offset() == error.Offset(),
                          "other damage at the second reading");
        }
        fuzz::Require(records == extent.records && span == extent.span_ms, "other records");
    } catch (const DamageError&) {
    } catch (const std::system_error&) {
    }
    return 0;
}
