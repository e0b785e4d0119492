#include <gmock/gmock.h>

#include <climits>

#include "CDataProvider.h"
#include "CTREventManager.h"
#include "CUtility.h"
#include "Main.h"
#include "MatchTrigger.h"
#include "Status.h"
#include "support/platform_fake.h"

int ServiceMain(int argc, char** argv);  // the service's main()

namespace test_support {
namespace {

const std::string kLater = "I app_control called; E DUMP not provided in launch_app args";

CTREventManager& Manager() {
    return *CTREventManager::GetInstance();
}

// What a launch with these values of the four required keys does on the main thread.
std::string Launch(const char* tags, const char* levels, const char* buffer, const char* mode,
                   std::map<std::string, std::string> further = {}) {
    further.insert({{"LOGTAG", tags}, {"LOGLEVEL", levels}, {"RQBBUFFER", buffer}});
    Platform().launch_arguments = std::move(further);
    if (mode != nullptr) {
        Platform().launch_arguments["POLICYMODE"] = mode;
    }
    Platform().Take();
    app_control(nullptr, nullptr);
    return Platform().Take(true);
}

TEST(ApplicationTest, FirstLaunchConfiguresAndLaterOnesDump) {
    InFreshProcess([] {
        Platform().launch_arguments = {{"LOGTAG", "A//C"},
                                       {"LOGLEVEL", "E/W/I/D"},
                                       {"RQBBUFFER", "0512k"},
                                       {"POLICYMODE", "-99999999999999999999"},
                                       {"DLOGDUMPMODE", "timer&&poweroff&Timer&bufferfull"},
                                       {"DLOGDUMPVALUE", "2147483648"},
                                       {"DUMP", "/tmp"}};
        EXPECT_EQ(ServiceMain(0, nullptr), -5);
        // The compressor thread finds no capture file and tries again every second.
        EXPECT_TRUE(Platform().WaitFor("E exception: =[TRELVO_BUFFER could not be opened]", 2));
        const std::string command =
            "dlogutil -r 0512k -n 1 -f /tmp/trelvo/RQB_Buffer -v kerneltime A:E :W C:I &";
        EXPECT_EQ(
            Platform().Take(true),
            "I Trelvo main Called..; I app_create called; I m_pInstance Created; I CTREventManager "
            "called; I Initialize called; I m_pInstance Created; I CDataDump created; I "
            "app_control called; I LogTag vector size: 3; I LogLevel vector size: 4; I Dlog "
            "command: " +
                command + "; system " + command +
                "; I SetPolicyMode called; I Dump Mode Parameter from OZU "
                "[timer&&poweroff&Timer&bufferfull]; I Registering dump with [2147483648]sec "
                "timer; I RegisterDumpTimer called; I Registering Timer with [2147483647]sec; I "
                "Reset Dump Timer; I Registering dump on poweroff; I Registering dump on Full "
                "Buffer; I SetBufferFullPolicy called; I SetBufferSize called; get "
                "com.velmora/featureconf/robustness.ozu_mode; I robustness.ozu_mode [2]; I set "
                "buffer Size :[524288]Bytes; I pause called; I resume called; I terminate called; "
                "I value of ret is -5; I app_main() is failed. err = -5");
        EXPECT_EQ(CUtility::Instance()->GetPolicyMode(), INT_MIN);
        EXPECT_EQ(Platform().power_callback, CTREventManager::t_OnPoweroff);
        EXPECT_EQ(Launch("A", "I", "1", "0"), kLater);
        Platform().launch_arguments = {{"DUMP", "/tmp"}, {"DUMPFORM", "gzip"}};
        Platform().Take();
        app_control(nullptr, nullptr);
        EXPECT_THAT(Platform().Take(true),
                    testing::EndsWith("E DUMPFORM must be plain or zstd, not [gzip]"));
        Platform().launch_arguments["DUMPFORM"] = "plain";
        app_control(nullptr, nullptr);
        EXPECT_TRUE(
            Platform().WaitFor("I Trigger received to dump data on request at path [/tmp]"));
    });
}

TEST(ApplicationTest, LinesThatMatchAskForOneDumpInARest) {
    InFreshProcess([] {
        app_create(nullptr);
        EXPECT_THAT(Launch("A", "I", "1", "0", {{"DLOGDUMPMODE", "match"}}),
                    testing::HasSubstr("E DLOGDUMPMODE has match, but there is no DLOGDUMPMATCH"));
        MatchTrigger& trigger = MatchTrigger::Instance();
        for (const char* items : {"", "A", "A:", ":E", "A:X", "A:Ex", "A:E&", "A:E&&B:E"}) {
            EXPECT_THROW(trigger.Enable({items}), std::invalid_argument) << items;
        }
        const auto dumps = [&](const MatchTrigger::Settings& settings, std::string_view tag,
                               char level, std::string_view message) {
            trigger.Enable(settings);
            Platform().Take();
            trigger.Look(tag, level, message);
            while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
            }
            return Platform().Take(true).find("I RequestDumpOnMatch called") == 0;
        };
        const MatchTrigger::Settings at_once{"A:W:x:y&*:F&B:V", 0, 0};
        EXPECT_TRUE(dumps(at_once, "A", 'W', "ax:yz"));
        EXPECT_TRUE(dumps(at_once, "A", 'E', "x:y"));
        EXPECT_TRUE(dumps(at_once, "C", 'F', ""));
        EXPECT_TRUE(dumps(at_once, "B", 'D', "any"));
        EXPECT_FALSE(dumps(at_once, "A", 'I', "x:y"));
        EXPECT_FALSE(dumps(at_once, "A", 'W', "x y"));
        EXPECT_FALSE(dumps(at_once, "C", 'E', "x:y"));
        EXPECT_TRUE(dumps({"A:E", 0, 1000}, "A", 'E', ""));
        EXPECT_FALSE(dumps({"A:E", 0, 1000}, "A", 'E', "")) << "too soon";
        status::DumpEnded("", "");
        EXPECT_THAT(Platform().Status(), testing::HasSubstr("\nsuppressed=1\n"));
    });
    InFreshProcess([] {
        app_create(nullptr);
        Launch("A", "I", "1", "0",
               {{"DLOGDUMPMODE", "match"},
                {"DLOGDUMPMATCH", "A:E"},
                {"DLOGDUMPDELAY", "1"},
                {"DLOGDUMPREST", "0"}});
        const auto match = [] {
            MatchTrigger::Instance().Look("A", 'E', "");
            status::DumpEnded("", "");
            return Platform().Status();
        };
        match();
        match();
        EXPECT_THAT(match(), testing::HasSubstr("\nsuppressed=2\n"))
            << "the dump that is due has these lines too";
        g_main_context_iteration(nullptr, TRUE);
        EXPECT_THAT(match(), testing::HasSubstr("\nsuppressed=2\n")) << "the rest is over";
    });
}

TEST(ApplicationTest, FirstLaunchThatLacksSomething) {
    InFreshProcess([] {
        EXPECT_EQ(Launch("A", "I", "1", nullptr),
                  "I app_control called; E LOGTAG or LOGLEVEL or RQBBUFFER or POLICYMODE not "
                  "provided in launch_app args; ui_app_exit");
        EXPECT_EQ(Launch("A", "I", "1", "0"), kLater) << "a first launch is not repeated";
    });
    InFreshProcess([] {
        Platform().system_result = -1;
        const std::string command =
            "dlogutil -r 1 -n 1 -f /tmp/trelvo/RQB_Buffer -v kerneltime A:I &";
        EXPECT_EQ(Launch("A", "I", "1", "0"),
                  "I app_control called; I LogTag vector size: 1; I LogLevel vector size: 1; I "
                  "Dlog command: " +
                      command + "; system " + command +
                      "; E Unable to launch Dlog command: " + command + "; ui_app_exit");
    });
    InFreshProcess([] {
        const std::string done = Launch("A/B/C", "D/W", "-1", "0");
        EXPECT_NE(done.find(" -v kerneltime A:D B:W C:W &; "), std::string::npos) << done;
        EXPECT_EQ(CDataProvider::Instance()->GetBufferSize(), ~0ULL << 10);
    });
}

TEST(ApplicationTest, FurtherKeysOfTheFirstLaunchTakeTheirWordsOnly) {
    const std::string many = "RQBHISTORY must be a number of KiB from 1 to 999999999, not ";
    // Expected: what comes after the buffer's size, or the refusal.
    const std::tuple<const char*, const char*, std::string> rows[] = {
        {"RQBCOUNT", "records", "[10485760]Bytes"},
        {"RQBCOUNT", "memory", "[10485760]Bytes; I SetBufferCount called"},
        {"RQBCOUNT", "Memory", "E RQBCOUNT must be records or memory, not [Memory]; ui_app_exit"},
        {"RQBCOUNT", "", "E RQBCOUNT must be records or memory, not []; ui_app_exit"},
        {"RQBHISTORY", "999999999",
         "[10485760]Bytes; I SetHistorySize called; I set history Size :[1023999998976]Bytes"},
        {"RQBHISTORY", "1",
         "[10485760]Bytes; I SetHistorySize called; I set history Size :[1024]Bytes"},
        {"RQBHISTORY", "0", "E " + many + "[0]; ui_app_exit"},
        {"RQBHISTORY", "1000000000", "E " + many + "[1000000000]; ui_app_exit"},
        {"RQBHISTORY", "-1", "E " + many + "[-1]; ui_app_exit"},
        {"RQBHISTORY", " 1", "E " + many + "[ 1]; ui_app_exit"},
        {"RQBHISTORY", "64k", "E " + many + "[64k]; ui_app_exit"},
        {"DLOGDUMPREST", "1000000", "[10485760]Bytes"},
        {"DLOGDUMPDELAY", "1000001",
         "E DLOGDUMPDELAY must be a number of seconds from 0 to 1000000, not [1000001]; "
         "ui_app_exit"},
        {"DLOGDUMPMATCH", "A",
         "E DLOGDUMPMATCH must be TAG:LEVEL or TAG:LEVEL:TEXT, joined by &, not [A]; ui_app_exit"},
        {"DUMPFORM", "plain", "[10485760]Bytes"},
        {"DUMPFORM", "zst", "E DUMPFORM must be plain or zstd, not [zst]; ui_app_exit"}};
    for (const auto& [key, word, expected] : rows) {
        InFreshProcess([&, key = key, word = word, &expected = expected] {
            Platform().feature_value = 1;
            CDataProvider::Instance();
            Manager();
            std::map<std::string, std::string> further{{"DLOGDUMPMODE", "match"},
                                                       {"DLOGDUMPMATCH", "A:E"}};
            further[key] = word;
            const std::string log = Launch("A", "I", "1", "0", further);
            EXPECT_THAT(log, testing::EndsWith(expected)) << key << word;
            EXPECT_EQ(log.find("system ") == std::string::npos, expected[0] == 'E') << key << word;
        });
    }
}

TEST(TriggerTest, EveryTriggerRestartsAnEnabledTimer) {
    const auto timer = [] { return g_main_context_find_source_by_user_data(nullptr, &Manager()); };
    InFreshProcess([&timer] {
        Manager().RegisterDumpTimer(0);
        Manager().RequestDumpOnFile("/tmp");
        EXPECT_EQ(timer(), nullptr);
        Manager().RegisterDumpTimer(3600);
        const std::string signalled = "; I Reset Dump Timer; I UnRegisterDumpTimer called; signal";
        const std::pair<std::function<void()>, std::string> rows[] = {
            {[] { Manager().RequestDumpOnFile(""); },
             "I RequestDumpOnFile called; I SignalDumpData called; I Reset Dump Timer; I "
             "UnRegisterDumpTimer called; I setDumpPath called; E File Path Not Available "
             "Abort..Dumping"},
            {[] { Manager().RequestDumpOnFullBuffer(); },
             "I RequestDumpOnFullBuffer called; I SignalSelfInitiateDumpData called" + signalled},
            {[] { Manager().RegisterDumpTimer(1); },
             "I RegisterDumpTimer called; I Registering Timer with [1]sec; I Reset Dump Timer; I "
             "UnRegisterDumpTimer called"},
            {[] { g_main_context_iteration(nullptr, TRUE); },
             "I t_startTimerDump called; I SignalSelfInitiateDumpData called" + signalled}};
        for (const auto& [trigger, expected] : rows) {
            ASSERT_NE(timer(), nullptr);
            const unsigned before = g_source_get_id(timer());
            Platform().Take();
            trigger();
            EXPECT_EQ(Platform().Take(), expected);
            EXPECT_EQ(g_main_context_find_source_by_id(nullptr, before), nullptr);
        }
        Manager().RegisterDumpTimer(3600);
        Manager().RegisterDumpTimer(-1);
        Manager().RequestDumpOnFullBuffer();
        ASSERT_NE(timer(), nullptr);
        const gint64 left = g_source_get_ready_time(timer()) - g_get_monotonic_time();
        EXPECT_TRUE(left > 3500000000 && left < 3602000000) << left << ": not the earlier interval";
    });
}

TEST(TriggerTest, OnlyTheWayIntoStandbyStartsADump) {
    const std::tuple<uint64_t, uint64_t, bool> rows[] = {{0, 2, false},
                                                         {0, 0x200000001, false},
                                                         {0x200000000, 0x100000000, false},
                                                         {0, 0x200000000, true}};
    for (const auto& [previous, next, dumps] : rows) {
        _device_power_state_info info{previous, next, 0};
        Snapshot(true);
        EXPECT_EQ(CTREventManager::t_OnPoweroff(&info, nullptr), 0);
        EXPECT_EQ(CUtility::Instance()->isSelfInitiatePending(), dumps) << next;
    }
    Snapshot(true);
}

}  // namespace
}  // namespace test_support
