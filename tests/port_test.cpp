#include <app.h>
#include <device/power-internal.h>
#include <dlog.h>
#include <gio/gio.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <system_info.h>
#include <unistd.h>
#include <vconf.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <future>
#include <map>
#include <string>
#include <vector>

#include "capture_watch.h"
#include "dlog_threshold.h"
#include "handles.h"
#include "support/fake_logind.h"
#include "support/process.h"

namespace fs = std::filesystem;

namespace {

using port::Handle;
using test_support::WriteFile;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

const fs::path kSocket = "/run/trelvo/launch.sock";

// Launch arguments that can be believed.
const std::vector<std::string> kFirst = {"LOGTAG=*", "LOGLEVEL=I", "RQBBUFFER=64", "POLICYMODE=0"};

// A service whose app_control hands the value of DUMP to `on_launch`, or "start" without one.
class Service {
public:
    explicit Service(std::vector<std::string> words,
                     std::function<void(std::string)> on_launch = {})
        : words_(std::move(words)), on_launch_(std::move(on_launch)) {}

    int Run() {
        std::vector<char*> argv = {const_cast<char*>("service")};
        for (std::string& word : words_) {
            argv.push_back(word.data());
        }
        ui_app_lifecycle_callback_s callbacks = {OnCreate, OnTerminate, nullptr, nullptr, OnLaunch};
        return ui_app_main(static_cast<int>(argv.size()), argv.data(), &callbacks, this);
    }

    // Runs it on a thread of its own; returns when it takes launch requests.
    [[nodiscard]] std::future<int> Start() {
        auto result = std::async(std::launch::async, [this] { return Run(); });
        created_.get_future().wait();
        return result;
    }

private:
    static bool OnCreate(void* self) {
        static_cast<Service*>(self)->created_.set_value();
        return true;
    }
    static void OnTerminate(void* /*self*/) {}
    static void OnLaunch(app_control_h request, void* self) {
        char* value = nullptr;
        EXPECT_EQ(app_control_get_extra_data(request, "absent", &value),
                  APP_CONTROL_ERROR_KEY_NOT_FOUND);
        EXPECT_EQ(value, nullptr);
        static_cast<void>(app_control_get_extra_data(request, "DUMP", &value));
        const Handle<char, std::free> owner(value);
        static_cast<Service*>(self)->on_launch_(value != nullptr ? value : "start");
    }

    std::vector<std::string> words_;
    std::function<void(std::string)> on_launch_;
    std::promise<void> created_;
};

// Sends one request; returns the text of the error reply, empty for success.
std::string Launch(const std::map<std::string, std::string>& arguments) {
    const Handle<GDBusConnection, g_object_unref> connection(g_dbus_connection_new_for_address_sync(
        ("unix:path=" + kSocket.string()).c_str(), G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT,
        nullptr, nullptr, nullptr));
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE("a{ss}"));
    for (const auto& [key, value] : arguments) {
        g_variant_builder_add(&builder, "{ss}", key.c_str(), value.c_str());
    }
    g_autoptr(GError) error = nullptr;
    const Handle<GVariant, g_variant_unref> reply(g_dbus_connection_call_sync(
        connection.get(), nullptr, "/trelvo/Launch", "trelvo.Launch", "Launch",
        g_variant_new("(a{ss})", &builder), G_VARIANT_TYPE_UNIT, G_DBUS_CALL_FLAGS_NONE, -1,
        nullptr, &error));
    return error != nullptr ? error->message : "";
}

TEST(App, CommandLineComesFirstThenTheSocketAndTheLastReplyIsSent) {
    std::vector<std::string> launches;
    Service service(kFirst, [&](const std::string& value) {
        launches.push_back(value.substr(0, 9));
        if (value == "last") {
            ui_app_exit();
        }
    });
    auto result = service.Start();
    std::map<std::string, std::string> many;
    for (int i = 0; i < 65; ++i) {
        many[std::to_string(i)] = "";
    }
    EXPECT_THAT(Launch(many), HasSubstr("64 keys"));
    EXPECT_THAT(Launch({{"DUMP", std::string(65536, 'x')}}), HasSubstr("65536 bytes"));
    EXPECT_THAT(Launch({{"", "x"}}), HasSubstr("empty"));
    EXPECT_THAT(Launch({{"LOGTAG", "a"}, {"DUMP", ""}, {"DUMPFORM", "gzip"}}),
                HasSubstr("LOGTAG: cannot be changed, the recording has started; stop the service "
                          "and start it with the new value\nDUMP: names no folder\n"
                          "DUMPFORM: 'gzip' is not one of plain, zstd"));
    for (int peer = 0; peer < 20; ++peer) {
        EXPECT_THAT(Launch({{"", "x"}}), HasSubstr("empty")) << "those that are gone do not count";
    }
    EXPECT_EQ(Launch({{"DUMP", std::string(65532, 'y')}}), "");
    EXPECT_EQ(Launch({{"DUMP", "last"}}), "");
    EXPECT_EQ(result.get(), APP_ERROR_NONE);
    EXPECT_THAT(launches, ElementsAre("start", "yyyyyyyyy", "last"));
    EXPECT_FALSE(fs::exists(kSocket));
}

TEST(App, UnusableFoldersAreNamed) {
    const auto run = [](std::vector<std::string> words) {
        testing::internal::CaptureStderr();
        const int result = Service(std::move(words)).Run();
        return std::to_string(result) + " " + testing::internal::GetCapturedStderr();
    };
    const fs::path folder = kSocket.parent_path();
    fs::remove_all(folder);
    fs::create_directory_symlink("/tmp", folder);
    EXPECT_THAT(run({}), StartsWith("-5 trelvo: /run/trelvo: "));
    fs::remove(folder);
    fs::create_directory(folder);
    fs::permissions(folder, fs::perms::owner_all | fs::perms::others_exec);
    EXPECT_THAT(run({}), StartsWith("-5 trelvo: /run/trelvo: "));
    fs::remove(folder);
    fs::create_directory_symlink("/opt", "/tmp/Trelvo_Dump");
    EXPECT_THAT(run({}), StartsWith("-5 trelvo: /tmp/Trelvo_Dump: "));
    fs::remove("/tmp/Trelvo_Dump");
    for (const fs::perms mode : {fs::perms::group_write, fs::perms::others_write}) {
        fs::create_directory("/tmp/Trelvo_Dump");
        fs::permissions("/tmp/Trelvo_Dump", fs::perms::owner_all | mode);
        EXPECT_THAT(run({}), StartsWith("-5 trelvo: /tmp/Trelvo_Dump: "));
        fs::remove("/tmp/Trelvo_Dump");
    }
}

TEST(CaptureWatch, ACaptureIsStartedUntilItStaysAndNoTimerOutlivesItsUse) {
    const fs::path published = "/run/trelvo/vconf/memory/trelvo/capture";
    fs::remove(published);
    port::CaptureWatch watch;
    const auto say = [](const std::string& message) {
        const int fd = std::atoi(std::getenv("TRELVO_KEEPER_FD"));
        EXPECT_GT(send(fd, message.data(), message.size(), 0), 0);
    };
    const auto run_until = [](const std::function<bool()>& holds) {
        while (!holds()) {
            g_main_context_iteration(nullptr, TRUE);
        }
    };
    const auto run_until_told = [&](const std::string& text) {
        run_until([&] { return test_support::ReadFile(published).find(text) == 0; });
    };
    const auto milliseconds_to_a_timer = [] {
        int priority = 0;
        int timeout = 0;
        GMainContext* const context = g_main_context_default();
        g_main_context_acquire(context);
        g_main_context_prepare(context, &priority);
        g_main_context_query(context, priority, &timeout, nullptr, 0);
        g_main_context_release(context);
        return timeout;
    };
    watch.Expect();
    watch.Expect();
    EXPECT_GT(milliseconds_to_a_timer(), 0);
    say("Salive=1\nreason=\nlost_removed=1\n");
    say("Salive=1\nreason=\nlost_removed=3\n");
    run_until_told("alive=1\nreason=\nrestarts=0\nlost_removed=3\n");
    say("Salive=0\nreason=full\n");
    run_until_told("alive=0\nreason=full\nrestarts=0\nlost_removed=3\n");
    test_support::Process capture({"sleep", "1000"});
    say("C" + std::to_string(capture.Pid()) + '\0' + "/tmp/late");
    g_main_context_iteration(nullptr, TRUE);
    EXPECT_EQ(milliseconds_to_a_timer(), -1) << "it has come";
    capture.Signal(SIGKILL);
    run_until_told("alive=0\nreason=/tmp/late: No such file or directory\nrestarts=");
    WriteFile("/tmp/late", "#!/bin/sh\nexit 3\n");
    fs::permissions("/tmp/late", fs::perms::owner_all);
    run_until_told("alive=0\nreason=dlogutil ended with status 3\n");
    fs::remove("/tmp/late");
    run_until_told("alive=0\nreason=/tmp/late: No such file or directory\nrestarts=");
    EXPECT_GT(milliseconds_to_a_timer(), 0);
    watch.Stop();
    EXPECT_EQ(milliseconds_to_a_timer(), -1);
}

TEST(Vconf, ValuesAreTextThatAnOperatorMayWrite) {
    constexpr const char* kKey = "memory/trelvo/test";
    const fs::path file = "/run/trelvo/vconf/memory/trelvo/test";
    fs::remove_all("/run/trelvo/vconf");
    int value = 7;
    EXPECT_EQ(vconf_get_int(kKey, &value), -1);
    for (const int number : {1, INT_MIN, INT_MAX}) {
        EXPECT_EQ(vconf_set_int(kKey, number), 0);
        EXPECT_EQ(vconf_get_int(kKey, &value), 0);
        EXPECT_EQ(value, number);
        EXPECT_EQ(test_support::ReadFile(file), std::to_string(number) + "\n");
    }
    WriteFile(file, " 0 \r\n\n");
    EXPECT_EQ(vconf_get_int(kKey, &value), 0);
    EXPECT_EQ(value, 0);
    value = 7;
    for (const char* text : {"", " \n", "1 2", "x", "1x", "2147483648", "0x10", "1.5"}) {
        WriteFile(file, text);
        EXPECT_EQ(vconf_get_int(kKey, &value), -1) << text;
    }
    for (const char* key : {"", "/a", "a/", "a//b", "../a", "a/..", "a/../b", "a/./b"}) {
        EXPECT_EQ(vconf_set_int(key, 1), -1) << key;
        EXPECT_EQ(vconf_get_int(key, &value), -1) << key;
    }
    EXPECT_EQ(value, 7) << "untouched by failures";
    const std::string text(100000, 'x');
    EXPECT_EQ(vconf_set_str(kKey, text.c_str()), 0);
    const Handle<char, std::free> read(vconf_get_str(kKey));
    EXPECT_EQ(read.get(), text);
    EXPECT_EQ(vconf_get_str("memory/trelvo/absent"), nullptr);
    fs::remove(file);
    fs::create_directory(file);
    EXPECT_EQ(vconf_set_int(kKey, 1), -1) << "the place is taken";
    EXPECT_EQ(std::distance(fs::directory_iterator(file.parent_path()), {}), 1)
        << "nothing is left of a failed write";
}

TEST(SystemInfo, OnlyWholeNumbersUnderTheKeyCount) {
    constexpr const char* kFile = "/etc/trelvo/system-info.ini";
    fs::remove(kFile);
    int value = 7;
    EXPECT_NE(system_info_get_custom_int("a/b.c", &value), SYSTEM_INFO_ERROR_NONE);
    WriteFile(kFile, "[custom]\na/b.c=-5\ntext=1x\nlarge=4294967296\n[other]\nelse=1\n");
    for (const char* key : {"absent", "text", "large", "else", ""}) {
        EXPECT_NE(system_info_get_custom_int(key, &value), SYSTEM_INFO_ERROR_NONE) << key;
    }
    EXPECT_EQ(value, 7) << "untouched by failures";
    EXPECT_EQ(system_info_get_custom_int("a/b.c", &value), SYSTEM_INFO_ERROR_NONE);
    EXPECT_EQ(value, -5);
    fs::remove(kFile);
}

TEST(Dlog, WithoutAJournalMessagesGoToStandardError) {
    const std::string text(5000, 'x');
    const std::string level = std::getenv("TRELVO_LOG_LEVEL");
    testing::internal::CaptureStderr();
    unsetenv("TRELVO_LOG_LEVEL");
    port::SetLogThreshold('E');
    EXPECT_EQ(__dlog_print(LOG_ID_MAIN, DLOG_WARN, "tag", "below it"), 0);
    EXPECT_EQ(__dlog_print(LOG_ID_MAIN, 99, "tag", "unknown, so information"), 0);
    port::SetLogThreshold('W');
    setenv("TRELVO_LOG_LEVEL", level.c_str(), 1);
    port::SetLogThreshold('S');  // the environment's goes first
    errno = EEXIST;
    EXPECT_EQ(__dlog_print(LOG_ID_MAIN, DLOG_WARN, "tag", "%s", text.c_str()), 5000);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "W/tag(P" + std::to_string(getpid()) + ", T" +
                                                          std::to_string(gettid()) + "): " + text +
                                                          "\n");
}

// What the service publishes about its dumps.
void Publish(int finished, bool pending) {
    const std::string text = "version=1\ndumps=" + std::to_string(finished) +
                             "\npending=" + (pending ? "1" : "0") + "\n";
    EXPECT_EQ(vconf_set_str("memory/trelvo/status", text.c_str()), 0);
}

TEST(Vconf, AFullCollectingFolderIsToldWhateverLiesInIt) {
    constexpr const char* kKey = "memory/trelvo/dlog_dump";
    const fs::path folder = "/opt/usr/share/svc-rk/dump";
    const uintmax_t limit = 20971520;
    fs::remove_all(folder);
    int finished = 0;
    const auto told = [&] {
        int pending = 0;
        Publish(finished, false);
        EXPECT_EQ(vconf_get_int(kKey, &pending), 0);
        EXPECT_EQ(vconf_set_int(kKey, 0), 0);
        return pending != 0;
    };
    EXPECT_EQ(vconf_set_int(kKey, 0), 0);
    EXPECT_FALSE(told()) << "no folder";
    fs::create_directories(folder / "lost+found");
    fs::create_symlink("/tmp/large", folder / "link");
    WriteFile("/tmp/large", "");
    fs::resize_file("/tmp/large", 2 * limit);
    for (const uintmax_t size : {limit, limit + 1}) {
        for (const char* name : {"a", "b"}) {  // before and behind the subfolder
            WriteFile(folder / name, "");
            fs::resize_file(folder / name, size);
            ++finished;
            EXPECT_EQ(told(), size > limit) << name;
            EXPECT_FALSE(told()) << "no dump has ended since";
            EXPECT_EQ(vconf_set_int(kKey, 7), 0);
            Publish(++finished, false);
            int pending = 0;
            EXPECT_EQ(vconf_get_int(kKey, &pending), 0);
            EXPECT_EQ(pending, 7) << "told already";
            EXPECT_EQ(vconf_set_int(kKey, 0), 0);
            fs::remove(folder / name);
        }
    }
}

// Hears of the machine going down. What it would ask for is a dump that the test publishes.
class PowerListener {
public:
    static int OnChange(_device_power_state_info* info, void* self) {
        EXPECT_EQ(info->prev_state, DEVICE_POWER_STATE_NORMAL);
        EXPECT_EQ(info->next_state, DEVICE_POWER_STATE_STANDBY);
        static_cast<PowerListener*>(self)->heard_.set_value();
        return 0;
    }
    void Wait() {
        EXPECT_EQ(heard_.get_future().wait_for(test_support::kLimit), std::future_status::ready);
        heard_ = {};
    }

private:
    std::promise<void> heard_;
};

constexpr std::chrono::seconds kBeforeAnyLimit{3};

TEST(Power, ShutdownSleepAndTheServicesOwnEndWaitForTheDump) {
    using Clock = std::chrono::steady_clock;
    PowerListener listener;
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nowhere", 1);
    EXPECT_LT(device_power_subscribe_state_changed_event(PowerListener::OnChange, &listener), 0);
    test_support::FakeLogind logind;
    Service service(kFirst, [&](const std::string& /*start*/) {
        for (const bool first : {true, false}) {
            EXPECT_EQ(
                device_power_subscribe_state_changed_event(PowerListener::OnChange, &listener) == 0,
                first);
        }
    });
    auto result = service.Start();
    int finished = 100;  // beyond what other tests of this process have published
    // Of two dumps the one before is written already, and does not count as the last one.
    const auto dump = [&](const std::function<bool()>& is_waiting) {
        Publish(++finished, true);
        EXPECT_TRUE(is_waiting());
        const auto start = Clock::now();
        Publish(++finished, false);
        return start;
    };
    for (const char* signal : {"PrepareForShutdown", "PrepareForSleep"}) {
        ASSERT_TRUE(logind.WaitForInhibitor()) << "at first, and when the shutdown is called off";
        logind.Emit(signal, true);
        listener.Wait();
        const auto start = dump([&] { return logind.WaitForInhibitor(); });
        EXPECT_TRUE(logind.WaitForRelease());
        EXPECT_LT(Clock::now() - start, kBeforeAnyLimit);
        logind.Emit(signal, false);
    }
    ASSERT_TRUE(logind.WaitForInhibitor());
    kill(getpid(), SIGTERM);
    listener.Wait();
    const auto start = dump([&] {
        return result.wait_for(std::chrono::milliseconds(100)) == std::future_status::timeout;
    });
    EXPECT_EQ(result.get(), APP_ERROR_NONE);
    EXPECT_LT(Clock::now() - start, kBeforeAnyLimit);
    EXPECT_EQ(device_power_unsubscribe_state_changed_event(PowerListener::OnChange), 0);
    EXPECT_LT(device_power_unsubscribe_state_changed_event(PowerListener::OnChange), 0);
    EXPECT_TRUE(logind.WaitForRelease());

    Service again(kFirst, [&](const std::string& /*start*/) {
        EXPECT_EQ(device_power_subscribe_state_changed_event(PowerListener::OnChange, &listener),
                  0);
    });
    logind.RefuseOnce();
    result = again.Start();
    ASSERT_TRUE(logind.WaitForInhibitor()) << "asked for again";
    Publish(++finished, true);
    kill(getpid(), SIGTERM);
    listener.Wait();
    const auto second_signal = Clock::now();
    kill(getpid(), SIGTERM);
    EXPECT_EQ(result.get(), APP_ERROR_NONE);
    EXPECT_LT(Clock::now() - second_signal, kBeforeAnyLimit);
    EXPECT_EQ(device_power_unsubscribe_state_changed_event(PowerListener::OnChange), 0);
}

TEST(App, FailsWhereTheRecordingCannotStart) {
    Service service(kFirst, [](const std::string& /*folder*/) { ui_app_exit(); });
    EXPECT_EQ(service.Run(), APP_ERROR_IO);
}

TEST(App, EndsWhenTheRequestedDumpIsWrittenOrAtTheSecondSignal) {
    constexpr const char* kCapture = "/tmp/trelvo/RQB_Buffer";
    umask(S_IRWXG | S_IRWXO);
    fs::create_directory("/tmp/trelvo");
    // The last dump's end, a second signal, or the end of a dump that nobody has asked for.
    for (const std::string_view end : {"asked for", "second signal", "own"}) {
        const bool second_signal = end == "second signal";
        setenv("TRELVO_PRIVATE_FOLDER", "/tmp", 1);
        WriteFile(kCapture, "of another boot");
        EXPECT_EQ(vconf_set_str("memory/trelvo/capture", "of an earlier one"), 0);
        WriteFile("/run/trelvo/lock", "9999999999\n");
        setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nowhere", 1);
        setenv("PATH", second_signal ? "/usr/bin" : "", 1);
        Service service({}, [](const std::string& /*folder*/) {});
        auto result = service.Start();
        EXPECT_STREQ(getenv("PATH"), second_signal ? TRELVO_BIN_DIR ":/usr/bin" : TRELVO_BIN_DIR);
        EXPECT_FALSE(fs::exists("/run/trelvo/vconf/memory/trelvo/capture"));
        EXPECT_EQ(test_support::ReadFile(kCapture), "");
        EXPECT_EQ(test_support::ReadFile("/run/trelvo/lock"), std::to_string(getpid()) + "\n");
        std::map<std::string, std::string> first{{"LOGTAG", "*"},
                                                 {"LOGLEVEL", "I"},
                                                 {"RQBBUFFER", "64"},
                                                 {"POLICYMODE", "0"},
                                                 {"DLOGDUMPMODE", "poweroff"}};
        EXPECT_THAT(Launch(first), HasSubstr("poweroff needs the system bus"));
        first.erase("DLOGDUMPMODE");
        EXPECT_EQ(Launch(first), "");
        Publish(7, false);
        for (const char* folder : {"/var/../tmp", "/proc/self/root/tmp"}) {
            EXPECT_THAT(Launch({{"DUMP", folder}}), HasSubstr("seen by the service alone"));
        }
        if (end == "own") {
            Publish(8, true);
        } else {
            EXPECT_EQ(Launch({{"DUMP", "/tmp_of_all"}}), "");
            Publish(8, false);
            EXPECT_EQ(Launch({{"DUMP", "/var/tmp"}, {"DUMPFORM", "zstd"}}), "");
        }
        const auto start = std::chrono::steady_clock::now();
        kill(getpid(), SIGTERM);
        EXPECT_EQ(result.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
        if (second_signal) {
            kill(getpid(), SIGTERM);
        } else {
            Publish(9, false);
        }
        EXPECT_EQ(result.get(), APP_ERROR_NONE);
        EXPECT_LT(std::chrono::steady_clock::now() - start, kBeforeAnyLimit);
    }
    unsetenv("TRELVO_PRIVATE_FOLDER");
}

}  // namespace
