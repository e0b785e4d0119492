#pragma once

#include <cstdint>
#include <list>
#include <mutex>
#include <string>
#include <vector>

namespace line {
class LogLine;
}

// The compressed buffer and everything that fills it: the readers of the capture files, the
// pipeline that turns a line into a record, the limit, and the snapshot that becomes a dump.
//
// The compressor thread reads and encodes, the dump writer takes snapshots, the main thread sets
// size and policy at launch, policy first. The buffer mutex is held for the encoding of one line
// and for the whole of a snapshot, so a dump never holds half a line or lacks a dictionary entry.
//
// What is lost when the buffer is full: the oldest tenth of the records, or, with the
// dump-on-full policy, nothing - reading stops until a dump has emptied the buffer.
class CDataProvider {
public:
    // First called on the main thread before any worker exists.
    static CDataProvider* Instance();

    // True: on a full buffer ask for a dump and wait. False: drop the oldest tenth.
    void SetBufferFullPolicy(bool dumpOnFull);
    bool GetBufferFullPolicy();
    // The limit in KiB; honoured only in feature mode 2 or with the dump-on-full policy, which
    // must have been set before; otherwise the limit is 10 MiB.
    void SetBufferSize(unsigned long long sizeKiB);
    // Bytes.
    unsigned long long GetBufferSize();
    // Adds the record being assembled to the byte total. The service never calls it.
    void UpdateBufferSize();

    // REQUIRES: the buffer mutex is held.
    void CheckDumpCondition();

    // Encodes one captured line into the buffer. With the dump-on-full policy it may block until a
    // dump has been taken. Throws what the parser throws and then leaves the buffer mutex locked.
    void m_GetDataDDP(std::string& line);

    // The whole content of a file; empty when it cannot be opened. The service never calls it.
    std::string m_GetData(std::string path);

    // Appends the dump image: policy version, dictionary, last log time, records. Consumes buffer
    // and dictionary when a self-initiated dump is pending, keeps both otherwise.
    void m_GetCompressedData(std::vector<unsigned char>& out);

    // Drains the capture files of the device's boot, the older first, and deletes them.
    void m_GetBootDataBuffer();
    // Follows the run-time capture files; returns only after an exception has ended it.
    void m_GetDataBuffer();

private:
    CDataProvider() = default;

    // Fills m_Record; false for a line whose time runs backwards. REQUIRES: the buffer mutex.
    bool m_EncodeRecord(const line::LogLine& line);
    // The dump-on-full wait: asks for a dump and polls until one has emptied the buffer.
    void m_WaitForEmptyBuffer();

    static CDataProvider* m_pInstance;

    std::vector<unsigned char> m_Record;  // the record being assembled; keeps its capacity
    std::string m_JoinedMessage;          // a message that line feeds were taken out of
    std::list<std::vector<unsigned char>> m_Records;  // oldest first, each exactly its length
    std::mutex m_BufferMutex;
    std::mutex m_SettingsMutex;                  // taken by the two setters only
    uint32_t m_ByteTotal = 0;                    // sum of the lengths in m_Records
    unsigned long long m_BufferLimit = 1048576;  // bytes
    bool m_FullDumpRequested = false;            // written by the compressor thread only
    bool m_DumpOnFull = false;
};
