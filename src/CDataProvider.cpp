#include "CDataProvider.h"

#include <system_info.h>
#include <unistd.h>

#include <algorithm>
#include <boost/thread/exceptions.hpp>
#include <fstream>
#include <ios>
#include <sstream>
#include <string_view>
#include <utility>

#include "CDBOperations.h"
#include "CTREventManager.h"
#include "CUtility.h"
#include "CaptureReader.h"
#include "CatchUp.h"
#include "Log.h"
#include "LogLine.h"
#include "MatchTrigger.h"
#include "RecordPacking.h"
#include "Status.h"

namespace {

constexpr const char* kFeatureKey = "com.velmora/featureconf/robustness.ozu_mode";
constexpr int kFeatureModeSized = 2;
constexpr unsigned long long kStandardLimit = 10485760;  // bytes
constexpr useconds_t kFullBufferPoll = 50000;            // microseconds

// Chosen by measurement, see docs/benchmarks.md.
constexpr size_t kMinPage = 1024;          // bytes
constexpr size_t kMaxPage = 262144;        // bytes
constexpr unsigned long long kPages = 40;  // that the limit is to have room for, plain
// A prepared dictionary for pages takes some 100 KiB with what belongs to it.
constexpr unsigned long long kDictionaryPaysFrom = 1048576;  // bytes
// A dictionary of sources is gone through for entries that no record refers to when it has this
// many bytes and more than this share of the limit.
constexpr unsigned long long kDictionaryFloor = 1048576;
constexpr unsigned long long kDictionaryShare = 8;

// REQUIRES: called from a handler; logs the exception in flight.
void LogReaderException() {
    try {
        throw;
    } catch (const boost::thread_interrupted&) {
        TR_LOGE("thread interrupted");
    } catch (const std::string& text) {
        TR_LOGE("exception: =[%s]", text.c_str());
    } catch (const std::ios_base::failure&) {
        TR_LOGE("Error Opening File");
    } catch (...) {
        TR_LOGE("unknown exception caught");
    }
}

}  // namespace

CDataProvider* CDataProvider::m_pInstance = nullptr;

CDataProvider::CDataProvider() : m_Records(kMinPage) {
    m_FitPages();
}

CDataProvider* CDataProvider::Instance() {
    if (m_pInstance == nullptr) {
        m_pInstance = new CDataProvider();
        TR_LOGI("m_pInstance Created");
    }
    return m_pInstance;
}

void CDataProvider::SetBufferFullPolicy(bool dumpOnFull) {
    TR_LOGI("%s called", __func__);
    const std::lock_guard<std::mutex> lock(m_SettingsMutex);
    m_DumpOnFull = dumpOnFull;
}

bool CDataProvider::GetBufferFullPolicy() {
    return m_DumpOnFull;
}

void CDataProvider::SetBufferSize(unsigned long long sizeKiB) {
    TR_LOGI("%s called", __func__);
    const std::lock_guard<std::mutex> lock(m_SettingsMutex);
    int mode = 1;
    if (system_info_get_custom_int(kFeatureKey, &mode) != 0) {
        TR_LOGE("Error Reading PQS Key [%s]", kFeatureKey);
    }
    TR_LOGI("robustness.ozu_mode [%d]", mode);
    m_BufferLimit = mode == kFeatureModeSized || m_DumpOnFull ? sizeKiB << 10 : kStandardLimit;
    m_FitPages();
    TR_LOGI("set buffer Size :[%llu]Bytes", m_BufferLimit);
}

unsigned long long CDataProvider::GetBufferSize() {
    return m_BufferLimit;
}

void CDataProvider::UpdateBufferSize() {
    m_ByteTotal += m_Record.size();
}

void CDataProvider::SetBufferCount(bool countMemory) {
    TR_LOGI("%s called", __func__);
    const std::lock_guard<std::mutex> lock(m_SettingsMutex);
    m_CountMemory = countMemory;
    m_FitPages();
}

void CDataProvider::SetHistorySize(unsigned long long sizeKiB) {
    TR_LOGI("%s called", __func__);
    const std::lock_guard<std::mutex> lock(m_SettingsMutex);
    m_BufferLimit = sizeKiB << 10;
    m_FitPages();
    TR_LOGI("set history Size :[%llu]Bytes", m_BufferLimit);
}

void CDataProvider::m_FitPages() {
    // Large pages pack better, but one is open, and a few more are the dictionary. Cutting a tenth
    // off takes a page apart, which is fast only for one that needs no dictionary.
    size_t pageSize = kMaxPage;
    while (pageSize > kMinPage && pageSize > m_BufferLimit / kPages) {
        pageSize /= 2;
    }
    const std::lock_guard<std::mutex> lock(m_BufferMutex);
    m_Records.SetPages(pageSize, m_CountMemory && m_BufferLimit >= kDictionaryPaysFrom);
}

size_t CDataProvider::GetHistoryMemory() {
    const std::lock_guard<std::mutex> lock(m_BufferMutex);
    return m_HistoryMemory();
}

size_t CDataProvider::m_HistoryMemory() const {
    return m_Records.Memory() + CUtility::Instance()->m_Dictionary().Memory();
}

size_t CDataProvider::GetRecordCount() {
    const std::lock_guard<std::mutex> lock(m_BufferMutex);
    return m_Records.Records();
}

void CDataProvider::CheckDumpCondition() {
    if (m_ApplyLimit()) {
        TR_LOGI("Requested Buffer Size Reached");
    }
}

bool CDataProvider::m_ApplyLimit() {
    if ((m_CountMemory ? m_HistoryMemory() : m_ByteTotal) < m_BufferLimit) {
        return false;
    }
    if (m_DumpOnFull) {
        m_FullDumpRequested = true;
        return true;
    }
    const size_t records = m_Records.Records();
    size_t bytes = 0;
    if (m_CountMemory) {
        SourceDictionary& dictionary = CUtility::Instance()->m_Dictionary();
        while (m_Records.Records() != 0 && m_HistoryMemory() >= m_BufferLimit) {
            bytes += m_Records.DropOldestPage();
            // Its tables double when they are full: without this they would not shrink before they
            // had pushed out all history.
            if (dictionary.Memory() > m_BufferLimit / kDictionaryShare) {
                dictionary.Forget(m_RecordNumber - m_Records.Records());
            }
        }
    } else {
        // A tenth at once, so that the limit is not met again by the very next line; of fewer
        // than ten records nothing goes, and the buffer grows past the limit.
        const auto tenth = static_cast<uint32_t>(static_cast<double>(records) * 0.1);
        bytes = m_Records.DropOldest(tenth, packing::RecordLength);
    }
    m_ByteTotal -= bytes;
    m_Dropped += records - m_Records.Records();
    const uint64_t oldest = m_RecordNumber - m_Records.Records();
    while (m_PageStarts.size() > 1 && m_PageStarts[1].record <= oldest) {
        m_PageStarts.pop_front();
    }
    return false;
}

bool CDataProvider::ReadStatistics(Statistics& out) {
    const std::unique_lock<std::mutex> lock(m_BufferMutex, std::try_to_lock);
    if (!lock) {
        return false;
    }
    out.accepted = m_RecordNumber;
    out.refused = m_Refused;
    out.dropped = m_Dropped;
    out.records = m_Records.Records();
    out.recordBytes = m_ByteTotal;
    out.memory = m_HistoryMemory();
    out.countsMemory = m_CountMemory;
    out.newestMs = CUtility::Instance()->m_LastTime();
    out.oldestMs = m_PageStarts.empty() ? out.newestMs : m_PageStarts.front().time;
    return true;
}

void CDataProvider::m_BoundDictionary() {
    SourceDictionary& dictionary = CUtility::Instance()->m_Dictionary();
    const auto size = [&] { return m_CountMemory ? dictionary.Memory() : dictionary.ImageSize(); };
    const unsigned long long share = m_BufferLimit / kDictionaryShare;
    const unsigned long long bound =
        m_CountMemory ? share : std::max<unsigned long long>(share, kDictionaryFloor);
    if (size() > std::max<unsigned long long>(bound, m_NextForgetting)) {
        dictionary.Forget(m_RecordNumber - m_Records.Records());
        // What is left may all be needed: not again before it has grown by a quarter.
        m_NextForgetting = size() + size() / 4;
    }
}

void CDataProvider::m_GetDataDDP(std::string& line) {
    CUtility* const utility = CUtility::Instance();
    // Unlocked by hand, not by a guard: an exception leaves the mutex held on purpose, so that
    // recording stops at a line that was half encoded instead of going on past it. What there is to
    // log waits until it is unlocked.
    m_BufferMutex.lock();
    const std::string_view stripped = line::TrimBlanks(line);
    if (stripped.empty()) {
        ++m_Refused;
        m_BufferMutex.unlock();
        TR_LOGI("Unable to Strip: %s", line.c_str());
        return;
    }
    const line::LogLine recognised(stripped);
    if (!recognised.IsRecognised()) {
        ++m_Refused;
        m_BufferMutex.unlock();
        TR_LOGD("Not dlog line..continue");
        return;
    }
    const line::LogLine text = recognised.WithoutLeadingSpace();
    CUtility::Components fields;
    m_Record.clear();
    if (!utility->m_ReadComponents(text, fields, m_JoinedMessage)) {
        const int lastTime = utility->m_LastTime();
        ++m_Refused;
        m_BufferMutex.unlock();
        CUtility::m_LogRefusedTime(text.Time(), lastTime);
        return;
    }
    packing::AppendLeb128(fields.timeDelta, m_Record);
    const auto source = utility->m_AppendHeader(fields, m_RecordNumber, m_Record);
    std::string_view rest = CDBOperations::Instance()->FindCode(fields.tag, fields.message);
    if (rest.empty()) {
        packing::AppendLeb128(static_cast<int>(fields.message.size()), m_Record);
        rest = fields.message;
    }
    // As bytes: from characters it would be one at a time.
    const auto* const bytes = reinterpret_cast<const unsigned char*>(rest.data());
    m_Record.insert(m_Record.end(), bytes, bytes + rest.size());
    const bool isSealed = m_Records.Append(m_Record.data(), m_Record.size());
    if (isSealed || m_Records.Records() == 1) {
        m_PageStarts.push_back({m_RecordNumber, utility->m_LastTime()});
    }
    ++m_RecordNumber;
    m_ByteTotal += m_Record.size();
    // Memory grows by pages and sources only.
    const bool isFull = (!m_CountMemory || isSealed || source.isNew) && m_ApplyLimit();
    if (source.isNew) {
        m_BoundDictionary();
    }
    m_BufferMutex.unlock();

    CUtility::m_LogNewSource(source, fields.tag, fields.pid, fields.tid);
    if (isFull) {
        TR_LOGI("Requested Buffer Size Reached");
    }
    MatchTrigger::Instance().Look(fields.tag, fields.level, fields.message);
    if (m_FullDumpRequested) {
        m_WaitForEmptyBuffer();
    }
}

void CDataProvider::m_WaitForEmptyBuffer() {
    const CatchUp::WaitsForDump waits;
    TR_LOGI("Request Dump Buffer Size Reached");
    CTREventManager::GetInstance()->RequestDumpOnFullBuffer();
    for (;;) {
        static_cast<void>(usleep(kFullBufferPoll));
        {
            const std::lock_guard<std::mutex> lock(m_BufferMutex);
            if (m_ByteTotal == 0) {
                break;
            }
        }
        TR_LOGI("conditional wait timeout on Full Buffer");
    }
    m_FullDumpRequested = false;
}

std::string CDataProvider::m_GetData(std::string path) {
    const std::ifstream file(path);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

void CDataProvider::m_GetCompressedData(std::vector<unsigned char>& out) {
    TakeSnapshot().Drain(DumpForm::kPlain, [&](const unsigned char* data, size_t size) {
        out.insert(out.end(), data, data + size);
    });
}

DumpSnapshot CDataProvider::TakeSnapshot() {
    CUtility* const utility = CUtility::Instance();
    const std::string version = CDBOperations::Instance()->GetPolicyVersion();
    DumpSnapshot snapshot;
    std::vector<unsigned char> entries;
    SourceDictionary forgotten;  // freed when the mutex is given back
    {
        const std::lock_guard<std::mutex> lock(m_BufferMutex);
        const bool consume = utility->isSelfInitiatePending();
        utility->m_Dictionary().AppendImage(entries);
        snapshot.head.reserve(version.size() + entries.size() + 15);
        packing::AppendLeb128(static_cast<int>(version.size()), snapshot.head);
        snapshot.head.insert(snapshot.head.end(), version.begin(), version.end());
        packing::AppendLeb128(static_cast<int>(entries.size()), snapshot.head);
        snapshot.head.insert(snapshot.head.end(), entries.begin(), entries.end());
        packing::AppendLeb128(utility->m_LastTime(), snapshot.head);
        snapshot.records = m_Records.Share();
        if (consume) {
            // All memory is had: from here on nothing fails, so that records and dictionary always
            // start afresh together.
            m_Records.Clear();
            m_PageStarts.clear();
            m_ByteTotal = 0;
            m_NextForgetting = 0;
            std::swap(forgotten, utility->m_Dictionary());
            utility->m_LastTime() = 0;
        }
    }
    TR_LOGI("Policy Version [%s] Len [%zu]", version.c_str(), version.size());
    CUtility::m_LogDictionary(entries);
    return snapshot;
}

void CDataProvider::m_GetBootDataBuffer() {
    try {
        capture::DrainBootFiles([this](std::string& line) { m_GetDataDDP(line); });
    } catch (...) {
        LogReaderException();
    }
    TR_LOGI("Finished");
}

void CDataProvider::m_GetDataBuffer() {
    try {
        capture::Follow([this](std::string& line) { m_GetDataDDP(line); }, status::Refresh);
    } catch (...) {
        LogReaderException();
    }
    TR_LOGI("Finished");
}
