#include "Main.h"

#include <malloc.h>

#include <algorithm>
#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/split.hpp>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "CDBOperations.h"
#include "CDataDump.h"
#include "CDataProvider.h"
#include "CLogCompressor.h"
#include "CTREventManager.h"
#include "CUtility.h"
#include "FixedPaths.h"
#include "Log.h"
#include "MatchTrigger.h"
#include "Status.h"

// True until the first launch request has arrived, successful or not.
bool bFirstRun = true;
// The tags of interest to this process; nothing fills or reads the set.
std::set<std::string> m_logTags;

namespace {

constexpr int kMaxHeapBlock = 128 * 1024;  // bytes

// One value of a launch request, released at the end of its scope.
class ExtraData {
public:
    ExtraData(app_control_h appControl, const char* key) {
        // A failure leaves the value null, which is how an absent key shows.
        static_cast<void>(app_control_get_extra_data(appControl, key, &m_Value));
    }
    ~ExtraData() { std::free(m_Value); }
    ExtraData(const ExtraData&) = delete;
    ExtraData& operator=(const ExtraData&) = delete;

    explicit operator bool() const { return m_Value != nullptr; }
    [[nodiscard]] char* Get() const { return m_Value; }

private:
    char* m_Value = nullptr;
};

// Decimal digits after blanks and a sign, up to the first other character; saturates.
int ToInt(const char* text) {
    using Limits = std::numeric_limits<int>;
    return static_cast<int>(
        std::clamp<long>(std::strtol(text, nullptr, 10), Limits::min(), Limits::max()));
}

// Adjacent separators give empty parts; an empty text gives one.
std::vector<std::string> Split(const char* text) {
    std::vector<std::string> parts;
    const std::string whole = text;
    boost::split(parts, whole, boost::is_any_of("/"));
    return parts;
}

// One shell command line. The values stand in it as they were launched, unquoted: whoever may
// launch the service decides what the shell makes of them.
std::string CaptureCommand(const char* bufferKiB, const std::vector<std::string>& tags,
                           const std::vector<std::string>& levels) {
    std::string command = std::string("dlogutil -r ") + bufferKiB + " -n " +
                          std::to_string(paths::kRotatedCaptureFiles) + " -f " +
                          paths::kCaptureFile + " -v kerneltime ";
    if (levels.size() < tags.size()) {
        TR_LOGE("LOGLEVEL has %zu levels for %zu tags, the last one serves the rest", levels.size(),
                tags.size());
    }
    for (size_t i = 0; i < tags.size(); ++i) {
        command += tags[i] + ":" + levels[std::min(i, levels.size() - 1)] + " ";
    }
    return command + "&";
}

void RegisterTimer(app_control_h appControl) {
    const ExtraData seconds(appControl, "DLOGDUMPVALUE");
    if (seconds) {
        TR_LOGI("Registering dump with [%s]sec timer", seconds.Get());
        CTREventManager::GetInstance()->RegisterDumpTimer(ToInt(seconds.Get()));
    }
}

void RegisterTriggers(app_control_h appControl) {
    const ExtraData modes(appControl, "DLOGDUMPMODE");
    if (!modes) {
        return;
    }
    TR_LOGI("Dump Mode Parameter from OZU [%s]", modes.Get());
    char* state = nullptr;
    for (const char* token = strtok_r(modes.Get(), "&", &state); token != nullptr;
         token = strtok_r(nullptr, "&", &state)) {
        const std::string_view mode = token;
        if (mode == "poweroff") {
            TR_LOGI("Registering dump on poweroff");
            CTREventManager::GetInstance()->RegisterDumpOnPowerOff();
        } else if (mode == "bufferfull") {
            TR_LOGI("Registering dump on Full Buffer");
            CDataProvider::Instance()->SetBufferFullPolicy(true);
        } else if (mode == "timer") {
            RegisterTimer(appControl);
        }
    }
}

// What goes beyond the keys that every launcher knows. Unlike those, a word that is not one of them
// is refused: nobody depends on its being ignored.
struct Settings {
    bool countsMemory = false;
    unsigned long long historyKiB = 0;  // 0 for the buffer's own size
    DumpForm form = DumpForm::kPlain;
    TableLimits tables;
};

// Of a whole number without a sign.
std::optional<unsigned long long> ReadNumber(const char* text, unsigned long long least) {
    constexpr size_t kMaxDigits = 9;
    const std::string_view digits = text;
    const unsigned long long value = std::strtoull(text, nullptr, 10);
    if (digits.empty() || digits.size() > kMaxDigits || value < least ||
        digits.find_first_not_of("0123456789") != std::string_view::npos) {
        return std::nullopt;
    }
    return value;
}

bool ReadSeconds(app_control_h appControl, const char* key, unsigned& seconds) {
    const ExtraData text(appControl, key);
    if (!text) {
        return true;
    }
    constexpr unsigned long long kMaxSeconds = 1000000;
    const auto number = ReadNumber(text.Get(), 0);
    if (!number || *number > kMaxSeconds) {
        TR_LOGE("%s must be a number of seconds from 0 to 1000000, not [%s]", key, text.Get());
        return false;
    }
    seconds = static_cast<unsigned>(*number);
    return true;
}

// Leaves `value` as it is where the key is absent.
bool ReadCount(app_control_h appControl, const char* key, const char* unit,
               unsigned long long& value) {
    const ExtraData text(appControl, key);
    if (!text) {
        return true;
    }
    const auto number = ReadNumber(text.Get(), 1);
    if (!number) {
        TR_LOGE("%s must be a number of %s from 1 to 999999999, not [%s]", key, unit, text.Get());
        return false;
    }
    value = *number;
    return true;
}

// False, with a message, where the match trigger is wanted but cannot be had.
bool EnableMatch(app_control_h appControl) {
    const ExtraData modes(appControl, "DLOGDUMPMODE");
    const std::string words = modes ? "&" + std::string(modes.Get()) + "&" : "";
    if (words.find("&match&") == std::string::npos) {
        return true;
    }
    const ExtraData items(appControl, "DLOGDUMPMATCH");
    if (!items) {
        TR_LOGE("DLOGDUMPMODE has match, but there is no DLOGDUMPMATCH");
        return false;
    }
    MatchTrigger::Settings settings;
    settings.items = items.Get();
    if (!ReadSeconds(appControl, "DLOGDUMPDELAY", settings.delay) ||
        !ReadSeconds(appControl, "DLOGDUMPREST", settings.rest)) {
        return false;
    }
    try {
        MatchTrigger::Instance().Enable(settings);
    } catch (const std::invalid_argument& item) {
        TR_LOGE("DLOGDUMPMATCH must be TAG:LEVEL or TAG:LEVEL:TEXT, joined by &, not [%s]",
                item.what());
        return false;
    }
    return true;
}

std::optional<DumpForm> ReadForm(app_control_h appControl) {
    const ExtraData form(appControl, "DUMPFORM");
    if (!form || form.Get() == std::string_view("plain")) {
        return DumpForm::kPlain;
    }
    if (form.Get() == std::string_view("zstd")) {
        return DumpForm::kZstd;
    }
    TR_LOGE("DUMPFORM must be plain or zstd, not [%s]", form.Get());
    return std::nullopt;
}

std::optional<Settings> ReadSettings(app_control_h appControl) {
    Settings settings;
    const ExtraData count(appControl, "RQBCOUNT");
    if (count) {
        settings.countsMemory = count.Get() == std::string_view("memory");
        if (!settings.countsMemory && count.Get() != std::string_view("records")) {
            TR_LOGE("RQBCOUNT must be records or memory, not [%s]", count.Get());
            return std::nullopt;
        }
    }
    if (!ReadCount(appControl, "RQBHISTORY", "KiB", settings.historyKiB) ||
        !ReadCount(appControl, "POLICYROWS", "rows", settings.tables.rows) ||
        !ReadCount(appControl, "POLICYKIB", "KiB", settings.tables.kib) ||
        !ReadCount(appControl, "POLICYSECONDS", "seconds", settings.tables.seconds)) {
        return std::nullopt;
    }
    const std::optional<DumpForm> form = ReadForm(appControl);
    if (!form) {
        return std::nullopt;
    }
    settings.form = *form;
    if (!EnableMatch(appControl)) {
        return std::nullopt;
    }
    return settings;
}

void StartCapture(app_control_h appControl) {
    const ExtraData tagList(appControl, "LOGTAG");
    const ExtraData levelList(appControl, "LOGLEVEL");
    const ExtraData bufferKiB(appControl, "RQBBUFFER");
    const ExtraData policyMode(appControl, "POLICYMODE");
    if (!tagList || !levelList || !bufferKiB || !policyMode) {
        TR_LOGE("LOGTAG or LOGLEVEL or RQBBUFFER or POLICYMODE not provided in launch_app args");
        ui_app_exit();
        return;
    }
    const std::optional<Settings> settings = ReadSettings(appControl);
    if (!settings) {
        ui_app_exit();
        return;
    }
    const std::vector<std::string> tags = Split(tagList.Get());
    TR_LOGI("LogTag vector size: %zu", tags.size());
    const std::vector<std::string> levels = Split(levelList.Get());
    TR_LOGI("LogLevel vector size: %zu", levels.size());

    const std::string command = CaptureCommand(bufferKiB.Get(), tags, levels);
    TR_LOGI("Dlog command: %s", command.c_str());
    // The command ends in "&": the shell's own status says nothing about the capture.
    if (std::system(command.c_str()) == -1) {
        TR_LOGE("Unable to launch Dlog command: %s", command.c_str());
        ui_app_exit();
        return;
    }
    CUtility::Instance()->SetPolicyMode(ToInt(policyMode.Get()));
    // Before the buffer size, which depends on the full-buffer policy.
    RegisterTriggers(appControl);
    // Sign-extended, so that a negative size is a huge one.
    CDataProvider::Instance()->SetBufferSize(
        static_cast<unsigned long long>(static_cast<long long>(ToInt(bufferKiB.Get()))));
    if (settings->historyKiB != 0) {
        CDataProvider::Instance()->SetHistorySize(settings->historyKiB);
    }
    if (settings->countsMemory) {
        CDataProvider::Instance()->SetBufferCount(true);
    }
    CTREventManager::GetInstance()->SetSelfInitiatedForm(settings->form);
    CDBOperations::Instance()->SetLimits(settings->tables);
    CLogCompressor::Instance();
    status::Refresh();
}

void RequestDump(app_control_h appControl) {
    const ExtraData path(appControl, "DUMP");
    if (!path) {
        TR_LOGE("DUMP not provided in launch_app args");
        return;
    }
    const std::optional<DumpForm> form = ReadForm(appControl);
    if (!form) {
        return;
    }
    TR_LOGI("Trigger received to dump data on request at path [%s]", path.Get());
    CTREventManager::GetInstance()->RequestDumpOnFile(path.Get(), *form);
}

}  // namespace

bool app_create(void* /*user_data*/) {
    TR_LOGI("app_create called");
    // In this order: the dump mutex and condition exist before the writer thread, which the last
    // one starts.
    CTREventManager::GetInstance();
    CUtility::Instance();
    CDataProvider::Instance();
    CDataDump::Instance();
    return true;
}

void app_control(app_control_h app_control, void* /*user_data*/) {
    TR_LOGI("app_control called");
    if (!bFirstRun) {
        RequestDump(app_control);
        return;
    }
    // Before any check: a first launch that fails is not tried again as one.
    bFirstRun = false;
    StartCapture(app_control);
}

void app_terminate(void* /*user_data*/) {
    TR_LOGI("terminate called");
}

void app_pause(void* /*user_data*/) {
    TR_LOGI("pause called");
}

void app_resume(void* /*user_data*/) {
    TR_LOGI("resume called");
}

int main(int argc, char** argv) {
    // What is needed for a moment, such as a page while it is packed, goes back to the system at
    // once: holes in the heap would be memory that no limit counts.
    static_cast<void>(mallopt(M_MMAP_THRESHOLD, kMaxHeapBlock));
    TR_LOGI("Trelvo main Called..");
    ui_app_lifecycle_callback_s callbacks{};
    callbacks.create = app_create;
    callbacks.terminate = app_terminate;
    callbacks.pause = app_pause;
    callbacks.resume = app_resume;
    callbacks.app_control = app_control;
    const int result = ui_app_main(argc, argv, &callbacks, nullptr);
    TR_LOGI("value of ret is %d", result);
    if (result != 0) {
        TR_LOGI("app_main() is failed. err = %d", result);
    }
    return result;
}
