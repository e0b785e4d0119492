// Random bytes for trelvoctl's reader of dumps: it ends, its memory follows the input (the
// fuzzer's own limit), and its two ways of reading agree.

#include <memory>
#include <optional>
#include <system_error>

#include "dump/survey.h"
#include "support/fuzz_support.h"
#include "support/process.h"

using namespace trelvo;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // A file, which may be a compressed one.
    test_support::WriteFile("/tmp/input", std::string(data, data + size));
    try {
        const std::unique_ptr<Input> input = OpenInput("/tmp/input");
        const Survey survey = TakeSurvey(*input, false);
        input->Seek(0);
        DumpReader reader(*input);
        Record record;
        uint64_t records = 0;
        int64_t span = 0;
        std::optional<DamageError> damage;
        try {
            while (reader.Next(record)) {
                fuzz::Require(record.end_offset > record.offset && record.delta_ms >= 0,
                              "an impossible record");
                span += records++ == 0 ? 0 : record.delta_ms;
            }
        } catch (const DamageError& error) {
            damage = error;
            fuzz::Require(survey.damage && survey.damage->Offset() == error.Offset(),
                          "other damage at the second reading");
        }
        // A cut between two records is seen by clock lines alone.
        fuzz::Require(damage || !survey.damage || survey.first_clock,
                      "damage is not seen at the second reading");
        fuzz::Require(records == survey.records && span == survey.span_ms, "other records");
    } catch (const DamageError&) {
    } catch (const std::system_error&) {
    }
    return 0;
}
