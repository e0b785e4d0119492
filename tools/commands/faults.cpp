#include "commands/faults.h"

#include <algorithm>
#include <new>
#include <system_error>

#include "commands/output.h"
#include "io/damage.h"
#include "policy/policy_file.h"
#include "text/time_point.h"

namespace trelvo {

void Faults::Tell(std::string_view message, ExitCode code) {
    Complain(message);
    worst_ = std::max(worst_, code);
}

void Faults::TellCaught(const std::string& name) {
    try {
        throw;
    } catch (const DamageError& error) {
        Tell(name + ": " + Describe(error), ExitCode::kDamage);
    } catch (const OtherFormatError& error) {
        Tell(name + ": " + error.what(), ExitCode::kDamage);
    } catch (const FilterError& error) {
        Tell(name + ": " + error.what(), ExitCode::kUsage);
    } catch (const PolicyError& error) {
        Tell(name + ": " + error.what(), ExitCode::kCodeTables);
    } catch (const std::system_error& error) {
        Tell(name + ": " + error.code().message(), ExitCode::kDamage);
    } catch (const std::bad_alloc&) {
        Tell(name + ": out of memory", ExitCode::kDamage);
    }
}

}  // namespace trelvo
