#include "SourceDictionary.h"

#include <gtest/gtest.h>

#include <deque>
#include <map>
#include <random>
#include <set>

#include "CDataProvider.h"
#include "CUtility.h"
#include "RecordPacking.h"
#include "support/failing_memory.h"
#include "support/platform_fake.h"

namespace test_support {
namespace {

struct Known {
    int index;
    uint64_t record;
};
using Model = std::map<std::string, std::map<int, Known>>;  // by "tag,pid" and tid

Bytes ImageOf(const Model& model) {
    Bytes image;
    for (const auto& [key, threads] : model) {
        Bytes pairs;
        for (const auto& [tid, known] : threads) {
            packing::AppendLeb128(tid, pairs);
            packing::AppendLeb128(known.index, pairs);
        }
        packing::AppendLeb128(static_cast<int>(key.size()), image);
        image.insert(image.end(), key.begin(), key.end());
        packing::AppendLeb128(static_cast<int>(pairs.size()), image);
        image.insert(image.end(), pairs.begin(), pairs.end());
    }
    return image;
}

TEST(SourceDictionaryTest, AgreesWithATreeAndGivesForgottenIndexesOutAgain) {
    const std::string tags[] = {"", "A", "A,1", "A,", "B", "\xC3\xA4", std::string(300, 'x')};
    const int numbers[] = {0, 1, -1, 9, 10, 100, 63, 64, -64, -65, INT32_MAX, INT32_MIN};
    std::mt19937 random(7);
    SourceDictionary dictionary;
    Model model;
    std::set<int> used;
    std::string tag;
    int pid = 0, tid = 0;
    for (uint64_t record = 0; record < 9000; ++record) {
        if (random() % 2 == 0) {  // else another line of the one before
            tag = tags[random() % std::size(tags)];
            pid = numbers[random() % std::size(numbers)];
            tid = random() % 4 == 0 ? static_cast<int>(random() % 500)
                                    : numbers[random() % std::size(numbers)];
        }
        const SourceDictionary::Entry found = dictionary.Find(tag, pid, tid, record);
        const std::string key = tag + "," + std::to_string(pid);
        ASSERT_EQ(found.isNewKey, model.count(key) == 0) << key;
        const auto [known, is_new] = model[key].insert({tid, {0, 0}});
        ASSERT_EQ(found.isNew, is_new);
        if (is_new) {
            known->second.index = 1;
            while (!used.insert(known->second.index).second) {
                ++known->second.index;
            }
        }
        ASSERT_EQ(found.index, known->second.index);
        known->second.record = record;
        if (record % 1500 == 1499) {
            const uint64_t oldest = record - random() % 1000;
            dictionary.Forget(oldest);
            for (auto entry = model.begin(); entry != model.end();) {
                auto& threads = entry->second;
                for (auto thread = threads.begin(); thread != threads.end();) {
                    const bool is_kept = thread->second.record >= oldest;
                    used.erase(is_kept ? 0 : thread->second.index);
                    thread = is_kept ? std::next(thread) : threads.erase(thread);
                }
                entry = threads.empty() ? model.erase(entry) : std::next(entry);
            }
        }
        if (record % 500 == 0 || record % 1500 == 1499) {
            Bytes image{'+'};
            dictionary.AppendImage(image);
            ASSERT_EQ(dictionary.ImageSize(), image.size() - 1);
            image.erase(image.begin());
            ASSERT_EQ(image, ImageOf(model)) << record;
        }
    }
}

TEST(SourceDictionaryTest, ItsMemoryIsWhatItTakes) {
    const size_t free = HeapInUse();
    SourceDictionary dictionary;
    for (int i = 0; i < 50000; ++i) {
        dictionary.Find("TAG" + std::to_string(i % 20000), i, i, static_cast<uint64_t>(i % 3));
    }
    for (const uint64_t oldest : {0U, 1U}) {
        dictionary.Forget(oldest);
        EXPECT_LE(HeapInUse() - free, dictionary.Memory() * 51 / 50);
    }
}

// Of the dictionary as a dump has it.
size_t ImageSize() {
    Bytes image;
    CUtility::Instance()->m_Dictionary().AppendImage(image);
    return image.size();
}

// Feeds a line of each of many sources, and looks at memory and at what can be decoded.
void ExpectSourcesComeAndGo(bool count_memory) {
    constexpr int kSources = 120000;
    constexpr size_t kLimit = 512 << 10U;
    CDataProvider& provider = *CDataProvider::Instance();
    provider.SetHistorySize(kLimit >> 10U);
    provider.SetBufferCount(count_memory);
    Platform().ignores_log = true;
    std::deque<std::string> fed;
    const auto expect_decodable = [&] {
        const std::vector<std::string> decoded = Decode(Snapshot(false));
        ASSERT_EQ(decoded.size(), provider.GetRecordCount());
        ASSERT_TRUE(std::equal(decoded.rbegin(), decoded.rend(), fed.rbegin()));
    };
    const SourceDictionary& dictionary = CUtility::Instance()->m_Dictionary();
    size_t before = 0;
    bool has_forgotten = false;
    for (int i = 0; i < kSources; ++i) {
        const std::string tag = "TAG" + std::to_string(i % 7);
        const std::string pid = std::to_string(i % 90000), tid = std::to_string(i / 3);
        std::string line = "1.5 I/" + tag;
        line.append("(P ").append(pid).append(", T ").append(tid).append("): f > .");
        provider.m_GetDataDDP(line);
        fed.push_back("I/" + tag + "(P " + pid + ", T " + tid + "): .");
        if (fed.size() > 100000) {
            fed.pop_front();
        }
        // When some were forgotten for the first time: none that the oldest record needs.
        if (!has_forgotten && dictionary.Memory() < before) {
            has_forgotten = true;
            expect_decodable();
        }
        before = dictionary.Memory();
        if (i % 10000 == 9999) {
            // With records counted, all that they refer to and a quarter, and tables for it.
            ASSERT_LE(provider.GetHistoryMemory(), count_memory ? kLimit : 24 * kLimit) << i;
            ASSERT_GT(provider.GetRecordCount(), 2500U) << i;
        }
        if (i % 50000 == 49999) {
            ASSERT_LE(ImageSize(), 1.75 * (1U << 20U)) << i;
        }
    }
    EXPECT_TRUE(has_forgotten);
    expect_decodable();
    Platform().ignores_log = false;
}

TEST(SourceDictionaryTest, SourcesThatComeAndGoArePartOfTheMemoryThatCounts) {
    ExpectSourcesComeAndGo(true);
}

TEST(SourceDictionaryTest, SourcesThatComeAndGoAreForgottenWhereRecordsCount) {
    ExpectSourcesComeAndGo(false);
    // What is forgotten next does not depend on what was consumed.
    Snapshot(true);
    CDataProvider& provider = *CDataProvider::Instance();
    provider.SetHistorySize(1);
    Platform().ignores_log = true;
    for (int i = 0; i < 90000; ++i) {
        std::string line = "1.5 I/TAG(P " + std::to_string(i) + ", T 1): f > .";
        provider.m_GetDataDDP(line);
    }
    EXPECT_LE(ImageSize(), 1U << 20U);
    Platform().ignores_log = false;
}

}  // namespace
}  // namespace test_support
