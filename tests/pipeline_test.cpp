#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <boost/thread/exceptions.hpp>
#include <filesystem>
#include <future>
#include <map>
#include <new>
#include <regex>
#include <set>

#include "CDataProvider.h"
#include "CUtility.h"
#include "CatchUp.h"
#include "Status.h"
#include "support/failing_memory.h"
#include "support/platform_fake.h"
#include "support/process.h"

namespace fs = std::filesystem;

namespace test_support {
namespace {

const std::string kCurrent = "/tmp/trelvo/RQB_Buffer";
const std::string kRotated = kCurrent + ".1";
const std::string kStart = "I Start reading data from: " + kCurrent + "; ";
const std::string kRead = "I Lines Read from " + kCurrent + ": ";
const std::string kSwitch = "I buffer to be switched to TRELVO_BUFFER.1";
const std::string kWaits = "I conditional wait timeout on Full Buffer";

// A line whose message is "[name]" and as many x as make its record `size` bytes long.
std::string Line(const std::string& name, size_t size = 0) {
    const size_t padding = size < name.size() + 5 ? 0 : size - name.size() - 5;
    return "1.0 I/T(P 1, T 2): f > [" + name + "]" + std::string(padding, 'x');
}

// Writes the lines prefix1, prefix2, ..., the last one without its line feed.
void WriteLines(const std::string& path, const std::string& prefix, int count) {
    std::string text;
    for (int i = 1; i <= count; ++i) {
        text += (i == 1 ? "" : "\n") + Line(prefix + std::to_string(i));
    }
    WriteFile(path, text);
}

class PipelineTest : public testing::Test {
protected:
    void SetUp() override {
        fs::remove_all("/tmp/trelvo");
        fs::create_directories("/tmp/trelvo/boot");
        Snapshot(true);
        SetLimit(0, 2, false, 1024);
    }

    unsigned long long SetLimit(int result, int mode, bool dump_on_full, unsigned long long size) {
        Platform().feature_result = result;
        Platform().feature_value = mode;
        Platform().Take();
        provider_.SetBufferFullPolicy(dump_on_full);
        provider_.SetBufferSize(size);
        return provider_.GetBufferSize();
    }

    void Feed(std::string line) { provider_.m_GetDataDDP(line); }

    // The names in the buffer, oldest first.
    static std::string Names() {
        const Bytes image = Snapshot(false);
        const std::string text(image.begin(), image.end());
        const std::regex name("\\[\\w+\\]");
        std::string names;
        for (std::sregex_iterator at(text.begin(), text.end(), name), end; at != end; ++at) {
            names += at->str();
        }
        return names;
    }

    // What the run-time reader logs. A step runs when it has read the current file, before it looks
    // for a rotated one, and when it has found one. With no step left, the current file is removed,
    // which ends the reader at its next pass.
    std::string Follow(const std::vector<std::function<void()>>& steps) {
        size_t next = 0;
        Platform().Take();
        Platform().on_event = [&](const std::string& event) {
            if (event.find(kRead) == 0 || event == kSwitch) {
                next < steps.size() ? steps[next]() : static_cast<void>(fs::remove(kCurrent));
                ++next;
            }
        };
        provider_.m_GetDataBuffer();
        Platform().on_event = nullptr;
        return Platform().Take(true);
    }

    CDataProvider& provider_ = *CDataProvider::Instance();
};

TEST_F(PipelineTest, RefusedLinesLeaveNoRecord) {
    Feed(" " + Line("kept") + "\t");
    CDataProvider::Statistics before;
    ASSERT_TRUE(provider_.ReadStatistics(before));
    Platform().Take();
    for (const char* line :
         {" \t ", "1.0 I/T(P 1, T 2): no prefix", "1.0 I/T(P 1, T 2) f > [x]",
          "1.0 IT(P 1, T 2): f > [/]", "I/T(P 1, T 2): f > [x]", "0.5 I/T(P 1, T 2): f > [x]"}) {
        Feed(line);
    }
    const std::string no_line = "D Not dlog line..continue; ";
    EXPECT_EQ(Platform().Take(), "I Unable to Strip:  \t ; " + no_line + no_line + no_line +
                                     no_line +
                                     "D Not dlog data, actualTimestamp:500, m_LastLogTime:1000");
    EXPECT_EQ(Names(), "[kept]");
    CDataProvider::Statistics after;
    ASSERT_TRUE(provider_.ReadStatistics(after));
    EXPECT_EQ(after.refused - before.refused, 6U);
    EXPECT_EQ(after.accepted, before.accepted);
}

TEST_F(PipelineTest, BufferSizeFollowsTheFeatureModeAndThePolicy) {
    EXPECT_EQ(SetLimit(0, 2, false, 2048), 2097152U);
    EXPECT_EQ(SetLimit(0, 1, false, 2048), 10485760U);
    EXPECT_EQ(SetLimit(0, 1, true, 2048), 2097152U);
    EXPECT_EQ(SetLimit(-1, 2, false, 2048), 10485760U);
    EXPECT_TRUE(Platform().WaitFor(
        "E Error Reading PQS Key [com.velmora/featureconf/robustness.ozu_mode]"));
}

TEST_F(PipelineTest, LimitDropsTheOldestTenth) {
    const std::tuple<const char*, int, size_t, size_t, const char*> rows[] = {
        {"a byte below the limit", 20, 51, 54, "[r1]"},
        {"the limit", 20, 51, 55, "[r3]"},
        {"nine records over it", 9, 400, 400, "[r1]"},
        {"ten records", 10, 400, 400, "[r2]"},
        {"a later line still over it", 12, 400, 400, "[r4]"}};
    SetLimit(0, 2, false, 1);
    for (const auto& [name, count, size, last_size, oldest] : rows) {
        Snapshot(true);
        CDataProvider::Statistics before;
        ASSERT_TRUE(provider_.ReadStatistics(before));
        for (int i = 1; i <= count; ++i) {
            Feed(Line("r" + std::to_string(i), i == count ? last_size : size));
        }
        EXPECT_EQ(Names().substr(0, 4), oldest) << name;
        CDataProvider::Statistics after;
        ASSERT_TRUE(provider_.ReadStatistics(after));
        EXPECT_EQ(after.dropped - before.dropped + after.records, static_cast<uint64_t>(count));
    }
}

TEST_F(PipelineTest, EverySnapshotIsOneRunOfLinesWhileOthersComeAndGo) {
    constexpr int kLines = 30000;
    const auto number = [](const std::string& line) {
        return std::stoi(line.substr(line.find('[') + 1));
    };
    provider_.SetHistorySize(48);
    for (const bool count_memory : {false, true}) {
        Snapshot(true);
        provider_.SetBufferCount(count_memory);
        std::thread feeder([this] {
            for (int i = 0; i < kLines; ++i) {
                Feed(Line(std::to_string(i), 60));
            }
        });
        int taken = -1, last = -1;
        for (unsigned i = 0; last < kLines - 1; ++i) {
            const bool consume = i % 4 == 3;
            const std::vector<std::string> lines = Decode(Snapshot(consume));
            for (size_t at = 0; at < lines.size(); ++at) {
                ASSERT_EQ(number(lines[at]), number(lines[0]) + static_cast<int>(at));
            }
            if (!lines.empty()) {
                EXPECT_GT(number(lines[0]), taken);
                EXPECT_GE(number(lines.back()), last);
                last = number(lines.back());
                taken = consume ? last : taken;
            }
        }
        feeder.join();
    }
    provider_.SetBufferCount(false);
}

TEST_F(PipelineTest, TheSameLimitOnMemoryKeepsMore) {
    for (const unsigned kib : {8U, 64U, 512U}) {
        std::map<bool, size_t> kept;
        for (const bool count_memory : {false, true}) {
            Snapshot(true);
            SetLimit(0, 1, false, 0);
            provider_.SetBufferCount(count_memory);
            provider_.SetHistorySize(kib);
            const size_t free = HeapInUse();
            unsigned fed = 0;
            for (; fed < kib * 100; ++fed) {  // four a second
                const std::string text = Line(std::to_string(fed * 7919 % 10007), 50);
                Feed(std::to_string(fed / 4) + text.substr(1));
                if (fed == kib * 50) {
                    Feed(std::to_string(fed / 4) + Line("large", kib << 11U).substr(1));
                }
            }
            EXPECT_LE(HeapInUse() - free, count_memory ? kib << 10U : kib << 12U) << kib;
            kept[count_memory] = provider_.GetRecordCount();
            CDataProvider::Statistics statistics;
            ASSERT_TRUE(provider_.ReadStatistics(statistics));
            EXPECT_EQ(statistics.recordBytes,
                      Snapshot(false).size() - provider_.TakeSnapshot().head.size());
            const auto oldest = static_cast<int>((fed - kept[count_memory]) / 4 * 1000);
            EXPECT_LE(statistics.oldestMs, oldest) << "within a page";
            EXPECT_TRUE(!count_memory || statistics.oldestMs == oldest) << "whole pages go";
        }
        EXPECT_GT(kept[true], kept[false]) << kib;
    }
    // Whether the size or what it counts is set first.
    std::set<size_t> memory;
    for (const bool size_first : {false, true}) {
        Snapshot(true);
        provider_.SetBufferCount(false);
        if (size_first) {
            provider_.SetHistorySize(1024);
        }
        provider_.SetBufferCount(true);
        if (!size_first) {
            provider_.SetHistorySize(1024);
        }
        for (int i = 0; i < 20000; ++i) {
            Feed(Line(std::to_string(i * 7919 % 10007), 50));
        }
        memory.insert(provider_.GetHistoryMemory());
    }
    EXPECT_EQ(memory.size(), 1U);
    provider_.SetBufferCount(false);
}

TEST_F(PipelineTest, SnapshotWithoutMemoryConsumesNothing) {
    SetLimit(0, 2, false, 1);
    for (int i = 0; i < 15; ++i) {
        Feed("2.5 I/T" + std::to_string(i % 5) + "(P 1, T " + std::to_string(i) + "): f > text");
    }
    const std::string before = Hex(Snapshot(false));
    int failures = 0;
    for (;; ++failures) {
        CUtility::Instance()->setSelfInitate(true);
        FailAllocationAfter(failures);
        try {
            DumpSnapshot snapshot = provider_.TakeSnapshot();
            EXPECT_FALSE(AllocationFailed());
            Bytes image;
            snapshot.Drain(DumpForm::kPlain, [&](const unsigned char* data, size_t size) {
                image.insert(image.end(), data, data + size);
            });
            EXPECT_EQ(Hex(image), before);
            break;
        } catch (const std::bad_alloc&) {
            ASSERT_TRUE(AllocationFailed());
        }
        ASSERT_EQ(Hex(Snapshot(false)), before) << failures;
    }
    EXPECT_GT(failures, 5);
    EXPECT_EQ(Hex(Snapshot(false)), "00 00 00");
}

TEST_F(PipelineTest, FullBufferWaitsUntilADumpHasConsumedIt) {
    SetLimit(0, 1, true, 0);
    Platform().Take();
    std::thread feeder([this] { Feed(Line("full")); });
    EXPECT_TRUE(Platform().WaitFor(kWaits));
    const std::string log =
        "D T,1 not found in m_LogTagPidTidMap.. Inserting..Tid:2, Index:1; I Requested Buffer Size "
        "Reached; I Request Dump Buffer Size Reached; I RequestDumpOnFullBuffer called; I "
        "SignalSelfInitiateDumpData called; signal; " +
        kWaits;
    EXPECT_EQ(Platform().Take().substr(0, log.size()), log);
    EXPECT_EQ(Names(), "[full]");
    EXPECT_TRUE(Platform().WaitFor(kWaits, 2)) << "a kept buffer ends the wait";
    Snapshot(true);
    feeder.join();
    SetLimit(0, 2, false, 1024);
    Feed(Line("next"));
    EXPECT_EQ(Names(), "[next]");
}

TEST_F(PipelineTest, WhatIsConsumedIsNeitherCountedNorDated) {
    const auto newest_at = [] {
        status::DumpEnded("", "");
        const std::string text = Platform().Status();
        return text.substr(text.find("\nnewest_at="), 30);
    };
    status::DumpPending("timer");
    EXPECT_THAT(Platform().Status(), testing::HasSubstr("\npending=1\nsupp")) << "the first";
    Platform().vconf_set_result = -1;
    status::DumpEnded("", "");
    Platform().vconf_set_result = 0;
    status::DumpEnded("", "");
    EXPECT_THAT(Platform().Status(), testing::HasSubstr("\npending=0\n")) << "said once more";
    Feed(Line("before"));
    const std::string told = newest_at();
    Snapshot(true);
    usleep(10000);  // for another time
    EXPECT_EQ(newest_at(), told) << "nothing newer was logged";
    status::DumpPending("full");
    EXPECT_THAT(Platform().Status(), testing::HasSubstr("\npending=1\n"));
    Feed("5.0 I/T(P 1, T 2): f > [after]");
    Feed("6.0 I/T(P 1, T 2): f > [last]");
    Feed("5.9 I/T(P 1, T 2): f > [late]");
    status::DumpPending("timer");
    status::DumpEnded("/a\nb=1", "no\nroom=1");
    EXPECT_THAT(
        Platform().Status(),
        testing::MatchesRegex(
            "version=[0-9.]+\npid=" + std::to_string(getpid()) +
            "\nstarted=[0-9]{10}\naccepted=3\nrefused=1\ndropped=0\nrecords=2\nrecord_bytes=20\n"
            "memory_bytes=" +
            std::to_string(provider_.GetHistoryMemory()) +
            "\nlimit_bytes=1048576\ncount=records\noldest_ms=5000\nnewest_ms=6000\nnewest_at=[0-9]+"
            "\n"
            "policy_version=\ntables=0\ndumps=5\npending=0\nlast_dump_time=[0-9]{10}\n"
            "last_dump_trigger=timer\nlast_dump_path=/a b=1\nlast_dump_result=no room=1\n"
            "last_dump_current=0\nsuppressed=0\nnow=[0-9]+\n"));
}

TEST_F(PipelineTest, ExceptionEndsTheReaderAndLeavesTheBufferLocked) {
    InFreshProcess([this] {
        WriteFile(kCurrent, "1.0 I/T(P x, T 2): f > broken\n" + Line("after"));
        EXPECT_EQ(Follow({}), kStart + "E unknown exception caught; I Finished");
        // Of another thread: the one that holds the lock may not ask.
        EXPECT_FALSE(std::async(std::launch::async, [this] {
                         CDataProvider::Statistics statistics;
                         return provider_.ReadStatistics(statistics);
                     }).get());
    });
}

TEST_F(PipelineTest, FollowsTheCurrentFileAndDrainsTheRotatedOne) {
    CatchUp& catch_up = CatchUp::Instance();
    std::string dumped;
    std::thread dump;
    const auto ask = [&] {
        catch_up.Wait(boost::chrono::seconds(10));
        dumped = Names();
    };
    WriteLines(kCurrent, "a", 5);
    const std::string log = Follow({[] { WriteLines(kCurrent, "a", 8); },
                                    [&] {
                                        WriteLines(kCurrent, "b", 3);
                                        dump = std::thread(ask);
                                    },
                                    [] { WriteLines(kRotated, "a", 12); }, [] {}});
    dump.join();
    EXPECT_EQ(Names(), "[a1][a2][a3][a4][a5][a6][a7][a8][a9][a10][a11][a12][b1][b2][b3]");
    EXPECT_EQ(dumped, Names()) << "a dump waits for the file behind the rotated one as well";
    EXPECT_TRUE(catch_up.HasCaughtUp());
    catch_up.Wait(boost::chrono::hours(1));  // not at all: nobody reads any more
    EXPECT_FALSE(catch_up.HasCaughtUp());
    EXPECT_EQ(log.substr(log.find(kRead)),
              kRead + "[5]; " + kRead + "[8]; " + kRead + "[3]; " + kSwitch +
                  "; I Lines Read from " + kRotated + ": [4]; " + kRead +
                  "[3]; E exception: =[TRELVO_BUFFER could not be opened]; I Finished");
    EXPECT_FALSE(fs::exists(kRotated));
    EXPECT_THAT(Platform().Status(), testing::HasSubstr("\nrecords=")) << "told after a pass";
}

TEST_F(PipelineTest, ADumpThatWaitedInVainIsNotCurrent) {
    CatchUp& catch_up = CatchUp::Instance();
    catch_up.SetFollowing(true);
    const auto dump =
        std::async(std::launch::async, [&] { catch_up.Wait(boost::chrono::milliseconds(50)); });
    // A reader that has not read all when the time is over.
    while (dump.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
        catch_up.Pause(boost::chrono::milliseconds(1), false);
    }
    EXPECT_FALSE(catch_up.HasCaughtUp());
    catch_up.SetFollowing(false);
}

TEST_F(PipelineTest, ACaptureThatDiesHasNotCaughtUp) {
    const std::string path = kCurrent + ".sync";
    const auto start = [&path] {
        fs::remove(path);
        FileDescriptor capture(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0));
        sockaddr_un address{AF_UNIX, {}};
        path.copy(address.sun_path, path.size());
        EXPECT_EQ(bind(capture.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(listen(capture.Get(), 1), 0);
        return capture;
    };
    CatchUp& catch_up = CatchUp::Instance();
    catch_up.SetFollowing(true);
    FileDescriptor capture = start();
    const auto dump =
        std::async(std::launch::async, [&] { catch_up.Wait(boost::chrono::seconds(60)); });
    const auto is_asked = [&] {
        FileDescriptor client;
        while (!client && dump.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
            catch_up.Pause(boost::chrono::milliseconds(1), true);
            client = FileDescriptor(accept(capture.Get(), nullptr, nullptr));
        }
        return client;
    };
    EXPECT_TRUE(is_asked());
    capture = start();
    EXPECT_TRUE(is_asked()) << "again, by a dump that still waits";
    capture = FileDescriptor();  // its socket is still there
    for (int pass = 0; pass < 3; ++pass) {
        catch_up.Pause(boost::chrono::milliseconds(1), true);
    }
    capture = start();
    const FileDescriptor client = is_asked();
    EXPECT_EQ(send(client.Get(), "k", 1, MSG_NOSIGNAL), 1);
    while (dump.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
        catch_up.Pause(boost::chrono::milliseconds(1), true);
    }
    EXPECT_TRUE(catch_up.HasCaughtUp());
    catch_up.SetFollowing(false);
}

TEST_F(PipelineTest, WhatRotatesUnseenIsMistaken) {
    WriteLines(kCurrent, "a", 2);
    Follow({[] { WriteLines(kCurrent, "b", 4); }, [] { WriteLines(kRotated, "a", 6); }, [] {}});
    EXPECT_EQ(Names(), "[a1][a2][b3][b4][a5][a6][b1][b2][b3][b4]") << "a new file that outgrew it";
    Snapshot(true);
    WriteLines(kCurrent, "a", 2);
    Follow({[] { (WriteLines(kRotated, "b", 3), WriteLines(kCurrent, "c", 1)); }, [] {}});
    EXPECT_EQ(Names(), "[a1][a2][b3][c1]") << "a second rotation between two passes";
}

TEST_F(PipelineTest, ReaderEndsWithAMessageForEachFailure) {
    WriteFile(kCurrent, "");
    EXPECT_EQ(Follow({[] { throw boost::thread_interrupted(); }}),
              kStart + kRead + "[0]; E thread interrupted; I Finished");
    EXPECT_EQ(Follow({[] { throw std::ios_base::failure("stream"); }}),
              kStart + kRead + "[0]; E Error Opening File; I Finished");
    EXPECT_EQ(Follow({[] { WriteFile(kRotated, ""); }, [] { fs::remove(kRotated); }}),
              kStart + kRead + "[0]; " + kSwitch +
                  "; E exception: =[TRELVO_BUFFER.1 could not be opened]; I Finished");
}

TEST_F(PipelineTest, BootFilesAreDrainedOldestFirst) {
    const std::string current = "/tmp/trelvo/boot/RQB_Buffer";
    WriteLines(current, "new", 2);
    WriteLines(current + ".1", "old", 3);
    provider_.m_GetBootDataBuffer();
    EXPECT_EQ(Names(), "[old1][old2][old3][new1][new2]");
    WriteFile(current + ".1", "");
    Platform().Take();
    provider_.m_GetBootDataBuffer();
    EXPECT_EQ(Platform().Take(),
              "I Start reading data from: " + current +
                  "; I Going to Read TRELVO_BOOT_BUFFER_1 first; I Lines Read from " + current +
                  ".1: [0]; I TRELVO_BOOT_BUFFER_1 is finished; I Going to Read "
                  "TRELVO_BOOT_BUFFER; I TRELVO_BOOT_BUFFER could not be opened; I Finished");
    EXPECT_FALSE(fs::exists(current + ".1"));
}

}  // namespace
}  // namespace test_support
