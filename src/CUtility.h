#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "DumpSnapshot.h"
#include "LogLine.h"
#include "SourceDictionary.h"

// The process-wide helper: line analysis, the byte-level encodings, the tag/process/thread
// dictionary, the launch settings, the dump request and questions to the file system.
//
// What is marked [others] is there for other programs and tests: the service itself calls the
// functions behind it.
//
// Created on the main thread before any worker thread exists; never destroyed. It has no lock of
// its own:
//   line analysis, dictionary, last log time   the data provider's buffer mutex
//   self-initiated flag, dump path and forms   the trigger manager's dump mutex
//   policy mode                                set on the main thread before the compressor starts
class CUtility {
public:
    static CUtility* Instance();

    // --- Line analysis ---------------------------------------------------------------------
    // All positions are first occurrences, searched from the start of the line. Nothing is
    // caught here: the conversions' exceptions and std::out_of_range reach the caller.

    // [others] The line without blanks and tabs at both ends; other white space stays.
    std::string m_Strip(const std::string& line);

    // [others] True for a line with "):" and " > " and, before the first " > ", a blank ahead of a
    // "/".
    bool m_IsDlogLine(std::string line);

    // [others] Splits a line. `timeDelta` is in milliseconds since the line accepted before; 0 for
    // the first line after a start or a reset. Returns false, with only `timeDelta` written, for a
    // line older than the last accepted one.
    bool m_GetLogLineComponents(int& timeDelta, char& level, std::string& tag, int& pid, int& tid,
                                std::string& message, std::string line);

    // The same, and how the recorder itself splits a line, as views; logs nothing. `line` has no
    // leading white space; `joined` holds a message that line feeds were taken out of.
    struct Components {
        int timeDelta = 0;
        char level = 0;
        std::string_view tag;
        int pid = 0;
        int tid = 0;
        std::string_view message;
    };
    bool m_ReadComponents(const line::LogLine& line, Components& out, std::string& joined);
    // The message about a line for which that was false.
    static void m_LogRefusedTime(int time, int lastTime);

    // [others] Single fields by slightly different rules than m_GetLogLineComponents; each logs
    // what it found.
    std::string m_GetLogLevel(std::string line);
    int m_GetPID(std::string line);
    int m_GetTID(std::string line);
    std::string m_GetLogTag(std::string line);
    // Milliseconds between `startTime` and the line's time; does not touch the last log time.
    long m_GetTimeDelta(long startTime, std::string line);
    std::string m_GetLogLine(std::string line);

    // --- Encodings; each appends to `out` ----------------------------------------------------

    // [others] Signed LEB128, preceded by its length in bytes (one byte) when `withHeader`. Returns
    // 0.
    int m_GetBytePackedIntWithHeader(int value, std::vector<unsigned char>& out, bool withHeader);
    // [others] Signed LEB128 followed by the bytes of `data`. Returns 0.
    int m_GetBytePackedInt(int value, std::vector<unsigned char>& data,
                           std::vector<unsigned char>& out);
    // The bytes of a text of the characters 0 and 1, eight to a byte. Returns false, with nothing
    // appended, when the length is not a multiple of 8; throws std::invalid_argument at any other
    // character, with the bytes before it appended.
    bool m_GetHcodeByteArray(std::string hcode, std::vector<unsigned char>& out);
    // [others] The record header of a line: level code and dictionary index, which is created when
    // new.
    void m_GetBitPacked(char level, std::string tag, int pid, int tid,
                        std::vector<unsigned char>& out);
    // The same, and how the recorder itself makes a header; logs nothing. `record` is the number of
    // the record that the header is for.
    SourceDictionary::Entry m_AppendHeader(const Components& line, uint64_t record,
                                           std::vector<unsigned char>& out);
    // The message about an entry that is new.
    static void m_LogNewSource(const SourceDictionary::Entry& entry, std::string_view tag, int pid,
                               int tid);
    // [others] The serialised dictionary and the last log time; empties both when `reset`.
    void m_DumpLogTagPidTidMap(std::vector<unsigned char>& out, bool reset);
    // The messages about a serialised dictionary's entries.
    static void m_LogDictionary(const std::vector<unsigned char>& entries);

    // For the snapshot, which keeps its time under the lock short.
    SourceDictionary& m_Dictionary() { return m_Sources; }
    int& m_LastTime() { return m_LastLogTime; }

    // --- Launch settings and dump request ----------------------------------------------------

    void SetPolicyMode(int mode);
    int GetPolicyMode();
    void setSelfInitate(bool pending);
    bool isSelfInitiatePending();
    // Refuses an empty path and keeps the one before.
    bool setDumpPath(std::string path);
    std::string getDumpPath();
    // The form of requested dumps, the next and those that follow its path, and of self-initiated
    // ones.
    void setRequestedForm(DumpForm form) { m_RequestedForm = form; }
    void setSelfInitiatedForm(DumpForm form) { m_SelfInitiatedForm = form; }
    // The form of the dump that is pending.
    DumpForm getDumpForm();

    // --- Files and folders -------------------------------------------------------------------

    // [others] The functions of Folders.h, where they are described.
    bool CheckSymbolicLink(const char* path);
    bool GenerateUniqueName(const boost::filesystem::path& folder,
                            const boost::filesystem::path& name, boost::filesystem::path& result);
    void GetFoldersize(std::string folder, unsigned long long& size);
    // Lists databases, whatever the extension.
    void GetFileList(const std::string& folder, const std::string& extension,
                     std::vector<std::string>& names);

private:
    CUtility() = default;

    bool m_AcceptTime(int time, int& timeDelta);

    static CUtility* m_pInstance;

    SourceDictionary m_Sources;
    int m_LastLogTime = 0;  // milliseconds; 0 when no line was accepted since the last reset
    bool m_SelfInitiate = false;
    std::string m_DumpPath;
    DumpForm m_RequestedForm = DumpForm::kPlain;
    DumpForm m_SelfInitiatedForm = DumpForm::kPlain;
    int m_PolicyMode = 0;
};
