#include "CUtility.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string_view>

#include "Folders.h"
#include "Log.h"
#include "RecordPacking.h"

CUtility* CUtility::m_pInstance = nullptr;

CUtility* CUtility::Instance() {
    if (m_pInstance == nullptr) {
        m_pInstance = new CUtility();
    }
    return m_pInstance;
}

std::string CUtility::m_Strip(const std::string& line) {
    return std::string(line::TrimBlanks(line));
}

bool CUtility::m_IsDlogLine(std::string line) {
    return line::LogLine(line).IsRecognised();
}

bool CUtility::m_GetLogLineComponents(int& timeDelta, char& level, std::string& tag, int& pid,
                                      int& tid, std::string& message, std::string line) {
    const line::LogLine fields(line::TrimLeadingSpace(line));
    Components components;
    std::string joined;
    const bool isAccepted = m_ReadComponents(fields, components, joined);
    timeDelta = components.timeDelta;
    if (!isAccepted) {
        m_LogRefusedTime(fields.Time(), m_LastLogTime);
        return false;
    }
    level = components.level;
    tag = components.tag;
    pid = components.pid;
    tid = components.tid;
    message = components.message;
    return true;
}

bool CUtility::m_ReadComponents(const line::LogLine& line, Components& out, std::string& joined) {
    if (!m_AcceptTime(line.Time(), out.timeDelta)) {
        return false;
    }
    // Read in this order: it decides which exception a malformed line raises.
    out.level = line.Level();
    out.tag = line.Tag();
    out.pid = line.Pid();
    out.tid = line.Tid();
    out.message = line.Message(joined);
    return true;
}

bool CUtility::m_AcceptTime(int time, int& timeDelta) {
    int64_t delta = 0;
    if (m_LastLogTime != 0) {
        // Saturated times at both ends of the range are further apart than an int holds.
        delta = static_cast<int64_t>(time) - m_LastLogTime;
    }
    timeDelta = static_cast<int>(std::clamp<int64_t>(delta, std::numeric_limits<int>::min(),
                                                     std::numeric_limits<int>::max()));
    if (timeDelta < 0) {
        return false;
    }
    // Taken over before the rest is read: a line that is found broken further on still moves it.
    m_LastLogTime = time;
    return true;
}

void CUtility::m_LogRefusedTime(int time, int lastTime) {
    TR_LOGD("Not dlog data, actualTimestamp:%d, m_LastLogTime:%d", time, lastTime);
}

std::string CUtility::m_GetLogLevel(std::string line) {
    const size_t start = line.find(' ') + 1;
    std::string level(line::Slice(line, start, line.find('/', start) - start));
    TR_LOGI("log level: %s", level.c_str());
    return level;
}

int CUtility::m_GetPID(std::string line) {
    const std::string header(line::Before(line, "):"));
    const size_t start = header.find("(P ") + 3;
    const int pid =
        std::stoi(std::string(line::Slice(header, start, header.find(',', start) - start)));
    TR_LOGI("PID: %d", pid);
    return pid;
}

int CUtility::m_GetTID(std::string line) {
    const std::string header(line::Before(line, "):"));
    const int tid = std::stoi(std::string(line::Slice(header, header.find(", T ") + 4)));
    TR_LOGI("TID: %d", tid);
    return tid;
}

std::string CUtility::m_GetLogTag(std::string line) {
    const std::string_view head = line::Before(line, "(P");
    std::string tag(head.substr(head.find('/') + 1));
    TR_LOGI("Log Tag: %s", tag.c_str());
    return tag;
}

long CUtility::m_GetTimeDelta(long startTime, std::string line) {
    TR_LOGI("startime: %ld", startTime);
    const std::string text(line::Before(line, " "));
    TR_LOGI("tmp:%s", text.c_str());
    const long time = line::Saturate<long>(std::stod(text) * 1000.0);
    // Wide enough for the difference of any two longs.
    const long delta = line::Saturate<long>(static_cast<long double>(time) - startTime);
    TR_LOGI("TimeDelta: %ld", delta);
    return delta;
}

std::string CUtility::m_GetLogLine(std::string line) {
    // The prefix is the beginning of the line, so what is found is always the whole line: callers
    // get the line back, not the message.
    const std::string prefix(line::Before(line, " > "));
    std::string found(line::Slice(line, line.find(prefix + " > ")));
    TR_LOGI("log line: %s", found.c_str());
    return found;
}

int CUtility::m_GetBytePackedIntWithHeader(int value, std::vector<unsigned char>& out,
                                           bool withHeader) {
    const size_t start = out.size();
    packing::AppendLeb128(value, out);
    if (withHeader) {
        const auto count = static_cast<unsigned char>(out.size() - start);
        out.insert(out.begin() + static_cast<std::ptrdiff_t>(start), count);
    }
    return 0;
}

int CUtility::m_GetBytePackedInt(int value, std::vector<unsigned char>& data,
                                 std::vector<unsigned char>& out) {
    packing::AppendLeb128(value, out);
    out.insert(out.end(), data.begin(), data.end());
    return 0;
}

bool CUtility::m_GetHcodeByteArray(std::string hcode, std::vector<unsigned char>& out) {
    if (hcode.size() % 8 != 0) {
        TR_LOGI("hcode not padded properly: %s", hcode.c_str());
        return false;
    }
    packing::AppendCodeText(hcode, out);
    return true;
}

void CUtility::m_GetBitPacked(char level, std::string tag, int pid, int tid,
                              std::vector<unsigned char>& out) {
    Components line;
    line.level = level;
    line.tag = tag;
    line.pid = pid;
    line.tid = tid;
    // As if all records to come referred to it: nobody says when none does.
    m_LogNewSource(m_AppendHeader(line, std::numeric_limits<uint64_t>::max(), out), tag, pid, tid);
}

SourceDictionary::Entry CUtility::m_AppendHeader(const Components& line, uint64_t record,
                                                 std::vector<unsigned char>& out) {
    const SourceDictionary::Entry entry = m_Sources.Find(line.tag, line.pid, line.tid, record);
    packing::AppendHeader(line.level, entry.index, out);
    return entry;
}

void CUtility::m_LogNewSource(const SourceDictionary::Entry& entry, std::string_view tag, int pid,
                              int tid) {
    if (!entry.isNew) {
        return;
    }
    const std::string key = std::string(tag) + "," + std::to_string(pid);
    if (entry.isNewKey) {
        TR_LOGD("%s not found in m_LogTagPidTidMap.. Inserting..Tid:%d, Index:%d", key.c_str(), tid,
                entry.index);
    } else {
        TR_LOGD("Tid %d not found in m_LogTagPidTidMap [%s].. Inserting..Index:%d", tid,
                key.c_str(), entry.index);
    }
}

void CUtility::m_DumpLogTagPidTidMap(std::vector<unsigned char>& out, bool reset) {
    std::vector<unsigned char> entries;
    m_Sources.AppendImage(entries);
    m_LogDictionary(entries);
    packing::AppendLeb128(static_cast<int>(entries.size()), out);
    out.insert(out.end(), entries.begin(), entries.end());
    packing::AppendLeb128(m_LastLogTime, out);
    if (reset) {
        m_Sources = SourceDictionary();
        m_LastLogTime = 0;
    }
}

void CUtility::m_LogDictionary(const std::vector<unsigned char>& entries) {
    const unsigned char* const end = entries.data() + entries.size();
    for (const unsigned char* at = entries.data(); at != end;) {
        const uint32_t keyLength = packing::ReadLeb128(at);
        TR_LOGD("logTagPidTidLen: %d", static_cast<int>(keyLength));
        at += keyLength;
        const uint32_t pairsLength = packing::ReadLeb128(at);
        TR_LOGD("tidIndexLen: %d", static_cast<int>(pairsLength));
        at += pairsLength;
    }
    TR_LOGI("mapData.size(): %zu", entries.size());
}

void CUtility::SetPolicyMode(int mode) {
    TR_LOGI("%s called", __func__);
    m_PolicyMode = mode;
}

int CUtility::GetPolicyMode() {
    return m_PolicyMode;
}

void CUtility::setSelfInitate(bool pending) {
    m_SelfInitiate = pending;
}

bool CUtility::isSelfInitiatePending() {
    return m_SelfInitiate;
}

bool CUtility::setDumpPath(std::string path) {
    TR_LOGI("%s called", __func__);
    if (path.empty()) {
        TR_LOGE("File Path Not Available Abort..Dumping");
        return false;
    }
    m_DumpPath = std::move(path);
    return true;
}

std::string CUtility::getDumpPath() {
    TR_LOGI("%s called", __func__);
    return m_DumpPath;
}

DumpForm CUtility::getDumpForm() {
    return m_SelfInitiate ? m_SelfInitiatedForm : m_RequestedForm;
}

bool CUtility::CheckSymbolicLink(const char* path) {
    return folders::CheckSymbolicLink(path);
}

bool CUtility::GenerateUniqueName(const boost::filesystem::path& folder,
                                  const boost::filesystem::path& name,
                                  boost::filesystem::path& result) {
    return folders::GenerateUniqueName(folder, name, result);
}

void CUtility::GetFoldersize(std::string folder, unsigned long long& size) {
    folders::GetFoldersize(folder, size);
}

void CUtility::GetFileList(const std::string& folder, const std::string& /*extension*/,
                           std::vector<std::string>& names) {
    // Whatever extension is asked for, only databases are listed.
    folders::GetFileList(folder, names);
}
