#pragma once

#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "DumpSnapshot.h"
#include "RecordStore.h"

// The compressed buffer and everything that fills it: the readers of the capture files, the
// pipeline that turns a line into a record, the limit, and the snapshot that becomes a dump.
//
// The compressor thread reads and encodes, the dump writer takes snapshots, the main thread sets
// size and policy at launch, policy first. The buffer mutex is held for the encoding of one line
// and while a snapshot is taken, which shares the records and copies no more than the open page,
// so a dump never holds half a line or lacks a dictionary entry. No message is logged meanwhile.
//
// What is lost when the buffer is full: the oldest tenth of the records, or the oldest page where
// the limit counts memory, or, with the dump-on-full policy, nothing - reading stops until a dump
// has emptied the buffer.
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
    // What the limit counts: the bytes of the records, or the memory that they and the dictionary
    // take.
    void SetBufferCount(bool countMemory);
    // The limit in KiB, whatever the feature mode and the dump-on-full policy.
    void SetHistorySize(unsigned long long sizeKiB);
    // Bytes of memory that records and dictionary take.
    size_t GetHistoryMemory();
    size_t GetRecordCount();

    // Counted from the start of the process, but for what the buffer holds.
    struct Statistics {
        uint64_t accepted = 0;  // lines that became records
        uint64_t refused = 0;   // lines that did not
        uint64_t dropped = 0;   // records that the limit took
        size_t records = 0;
        size_t recordBytes = 0;
        size_t memory = 0;
        bool countsMemory = false;
        int newestMs = 0;  // kernel time; of no meaning without records
        int oldestMs = 0;  // not later than the oldest record's, at most a page earlier
    };
    // Returns false, with nothing read, where the buffer mutex is held.
    bool ReadStatistics(Statistics& out);

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
    // The same, to be written later. Where memory runs out it throws std::bad_alloc and has
    // consumed nothing.
    DumpSnapshot TakeSnapshot();

    // Drains the capture files of the device's boot, the older first, and deletes them.
    void m_GetBootDataBuffer();
    // Follows the run-time capture files; returns only after an exception has ended it.
    void m_GetDataBuffer();

private:
    CDataProvider();

    // True when the limit is met and a dump is wanted. REQUIRES: the buffer mutex.
    bool m_ApplyLimit();
    void m_BoundDictionary();
    [[nodiscard]] size_t m_HistoryMemory() const;
    // Pages of the size that fits the limit. REQUIRES: the settings mutex.
    void m_FitPages();
    // The dump-on-full wait: asks for a dump and polls until one has emptied the buffer.
    void m_WaitForEmptyBuffer();

    static CDataProvider* m_pInstance;

    std::vector<unsigned char> m_Record;  // the record being assembled; keeps its capacity
    std::string m_JoinedMessage;          // a message that line feeds were taken out of
    RecordStore m_Records;
    uint64_t m_RecordNumber = 0;  // of the next record, counted from the start of the process
    uint64_t m_Refused = 0;
    uint64_t m_Dropped = 0;
    // The first record of each page that the buffer holds, for the time that it goes back to.
    struct PageStart {
        uint64_t record;
        int time;
    };
    std::deque<PageStart> m_PageStarts;
    size_t m_NextForgetting = 0;  // bytes of the dictionary at which it is gone through again
    std::mutex m_BufferMutex;
    std::mutex m_SettingsMutex;                  // taken by the setters only
    uint64_t m_ByteTotal = 0;                    // sum of the lengths in m_Records
    unsigned long long m_BufferLimit = 1048576;  // bytes
    bool m_FullDumpRequested = false;            // written by the compressor thread only
    bool m_DumpOnFull = false;
    bool m_CountMemory = false;
};
