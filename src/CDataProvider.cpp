#include "CDataProvider.h"

#include <system_info.h>
#include <unistd.h>

#include <boost/thread/exceptions.hpp>
#include <fstream>
#include <ios>
#include <sstream>
#include <string_view>

#include "CDBOperations.h"
#include "CTREventManager.h"
#include "CUtility.h"
#include "CaptureReader.h"
#include "LineParser.h"
#include "Log.h"
#include "RecordPacking.h"

namespace {

constexpr const char* kFeatureKey = "com.velmora/featureconf/robustness.ozu_mode";
constexpr int kFeatureModeSized = 2;
constexpr unsigned long long kStandardLimit = 10485760;  // bytes
constexpr useconds_t kFullBufferPoll = 50000;            // microseconds

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
    TR_LOGI("set buffer Size :[%llu]Bytes", m_BufferLimit);
}

unsigned long long CDataProvider::GetBufferSize() {
    return m_BufferLimit;
}

void CDataProvider::UpdateBufferSize() {
    m_ByteTotal += static_cast<uint32_t>(m_Record.size());
}

void CDataProvider::CheckDumpCondition() {
    if (m_ByteTotal < m_BufferLimit) {
        return;
    }
    if (m_DumpOnFull) {
        TR_LOGI("Requested Buffer Size Reached");
        m_FullDumpRequested = true;
        return;
    }
    // A tenth at once, so that the limit is not met again by the very next line; with fewer than
    // ten records that is none, and the buffer grows past the limit.
    const auto tenth = static_cast<uint32_t>(static_cast<double>(m_Records.size()) * 0.1);
    for (uint32_t dropped = 0; dropped < tenth; ++dropped) {
        m_ByteTotal -= static_cast<uint32_t>(m_Records.front().size());
        m_Records.pop_front();
    }
}

void CDataProvider::m_GetDataDDP(std::string& line) {
    // Unlocked by hand, not by a guard: an exception leaves the mutex held on purpose, so that
    // recording stops at a line that was half encoded instead of going on past it.
    m_BufferMutex.lock();
    const std::string_view stripped = line::TrimBlanks(line);
    if (stripped.empty()) {
        TR_LOGI("Unable to Strip: %s", line.c_str());
        m_BufferMutex.unlock();
        return;
    }
    const line::LogLine fields(stripped);
    if (!fields.IsRecognised()) {
        m_BufferMutex.unlock();
        TR_LOGD("Not dlog line..continue");
        return;
    }
    if (!m_EncodeRecord(fields.WithoutLeadingSpace())) {
        m_BufferMutex.unlock();
        return;
    }
    m_Records.push_back(m_Record);
    m_ByteTotal += static_cast<uint32_t>(m_Record.size());
    CheckDumpCondition();
    m_BufferMutex.unlock();

    if (m_FullDumpRequested) {
        m_WaitForEmptyBuffer();
    }
}

bool CDataProvider::m_EncodeRecord(const line::LogLine& line) {
    CUtility* const utility = CUtility::Instance();
    int timeDelta = 0;
    m_Record.clear();
    if (!utility->m_AcceptTime(line.Time(), timeDelta)) {
        return false;
    }
    // In the order in which a broken line is to be found out.
    const char level = line.Level();
    const std::string_view tag = line.Tag();
    const int pid = line.Pid();
    const int tid = line.Tid();
    const std::string_view message = line.Message(m_JoinedMessage);

    packing::AppendLeb128(timeDelta, m_Record);
    packing::AppendHeader(level, utility->m_GetTidIndex(tag, pid, tid), m_Record);
    if (const auto* const code = CDBOperations::Instance()->FindCode(tag, message)) {
        m_Record.insert(m_Record.end(), code->begin(), code->end());
    } else {
        packing::AppendLeb128(static_cast<int>(message.size()), m_Record);
        m_Record.insert(m_Record.end(), message.begin(), message.end());
    }
    return true;
}

void CDataProvider::m_WaitForEmptyBuffer() {
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
    // Freed only when the mutex is given back: that takes longer than the copying, and new lines
    // need not wait for it.
    std::list<std::vector<unsigned char>> consumed;
    const std::lock_guard<std::mutex> lock(m_BufferMutex);
    CUtility* const utility = CUtility::Instance();
    const bool consume = utility->isSelfInitiatePending();

    const std::string version = CDBOperations::Instance()->GetPolicyVersion();
    TR_LOGI("Policy Version [%s] Len [%zu]", version.c_str(), version.size());
    utility->m_GetBytePackedIntWithHeader(static_cast<int>(version.size()), out, false);
    out.insert(out.end(), version.begin(), version.end());

    utility->m_DumpLogTagPidTidMap(out, consume);
    out.reserve(out.size() + m_ByteTotal);
    for (const std::vector<unsigned char>& record : m_Records) {
        out.insert(out.end(), record.begin(), record.end());
    }
    if (consume) {
        consumed.swap(m_Records);
        m_ByteTotal = 0;
    }
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
        capture::Follow([this](std::string& line) { m_GetDataDDP(line); });
    } catch (...) {
        LogReaderException();
    }
    TR_LOGI("Finished");
}
