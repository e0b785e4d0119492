#include "CDataDump.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vconf.h>

#include <boost/filesystem/path.hpp>
#include <cerrno>
#include <exception>
#include <memory>
#include <string>
#include <system_error>

#include "CDataProvider.h"
#include "CTREventManager.h"
#include "CUtility.h"
#include "CatchUp.h"
#include "DumpFile.h"
#include "FixedPaths.h"
#include "Folders.h"
#include "Log.h"
#include "Status.h"

CDataDump* CDataDump::m_pInstance = nullptr;
bool CDataDump::m_bRuning = true;

namespace {

// How a dump ended: with the path of its file, or with the reason why there is none.
struct DumpOutcome {
    std::string path;
    std::string error;
};

constexpr const char* kDumpName = "trelvo";
constexpr boost::chrono::milliseconds kCatchUpLimit(500);

// False when the folder is missing and cannot be made. Anything else that is wrong with it shows
// when a dump is written.
bool PrepareTemporaryFolder() {
    DIR* const dir = opendir(paths::kTemporaryFolder);
    if (dir != nullptr) {
        static_cast<void>(closedir(dir));
        return true;
    }
    if (errno != ENOENT) {
        return true;
    }
    TR_LOGI("Creating Trelvo Path [%s]", paths::kTemporaryFolder);
    if (mkdir(paths::kTemporaryFolder, 0755) != 0) {
        TR_LOGE("Unable to create Trelvo Path");
        return false;
    }
    return true;
}

// Tells the collecting service when its folder is over the limit, and then logs `message`.
void CheckCollectingFolder(const char* message) {
    unsigned long long size = 0;
    folders::GetFoldersize(paths::kCollectingFolder, size);
    if (size <= paths::kCollectingLimit) {
        return;
    }
    if (vconf_set_int(paths::kUploadKey, 1) != 0) {
        TR_LOGE("Data dump complete, Unable to set vconf:%s to 1", paths::kUploadKey);
    }
    TR_LOGI("%s", message);
}

// True when the collecting service has fetched what it was told of, so that a self-initiated dump
// may be written.
bool MayAddToCollectingFolder() {
    int pending = 0;
    if (vconf_get_int(paths::kUploadKey, &pending) != 0) {
        TR_LOGE("Unable to get vconf:%s status, aborting self initiated dump", paths::kUploadKey);
        return false;
    }
    if (pending != 0) {
        TR_LOGI("Dump uploading pending from RK, abort self initiated dump");
        return false;
    }
    return true;
}

// Null when the temporary file cannot be made. What is left of an earlier dump goes: written over,
// it would still have the modes and the names that somebody gave it.
std::unique_ptr<NewFile> OpenTemporaryFile() {
    static_cast<void>(unlink(paths::kTemporaryDump));
    try {
        return std::make_unique<NewFile>(AT_FDCWD, paths::kTemporaryDump);
    } catch (const std::system_error&) {
        TR_LOGE("Unable to open compressed file path: %s", paths::kTemporaryDump);
        return nullptr;
    }
}

DumpFolder OpenDestination(const std::string& folder) {
    try {
        return DumpFolder(folder);
    } catch (const std::system_error& failure) {
        const int error = failure.code().value();
        if (error != ENOENT && error != ENOTDIR) {
            TR_LOGE("Not expected boost error %d", error);
        }
        throw;
    }
}

// Returns the path of the copy.
std::string CopyToDestination(const NewFile& dump, const std::string& folder, DumpForm form) {
    const std::string name = OpenDestination(folder).Store(
        dump, kDumpName, form == DumpForm::kZstd ? ".dump.zst" : ".dump");
    return (boost::filesystem::path(folder) / name).string();
}

DumpOutcome WriteDump(DumpSnapshot& snapshot, DumpForm form, bool isSelfInitiated) {
    std::unique_ptr<NewFile> file = OpenTemporaryFile();
    if (file == nullptr) {
        return {"", std::string("cannot create ") + paths::kTemporaryDump};
    }
    TR_LOGI("Dumping to File Started..[%s]", paths::kTemporaryDump);
    DumpOutcome outcome;
    try {
        snapshot.Drain(form,
                       [&](const unsigned char* data, size_t size) { file->Write(data, size); });
        const std::string folder =
            isSelfInitiated ? paths::kCollectingFolder : CUtility::Instance()->getDumpPath();
        if (folder.empty()) {
            // The temporary file stays: it is the only place where this dump is.
            file->Stay();
            TR_LOGE("File Path Not Available Abort..Dumping");
            return {"", "no folder to write to"};
        }
        outcome.path = CopyToDestination(*file, folder, form);
    } catch (const std::system_error& failure) {
        outcome.error = failure.code().message();
    }
    file.reset();
    if (!outcome.error.empty()) {
        TR_LOGE("Could not copy file: error code: %s", outcome.error.c_str());
        return outcome;
    }
    TR_LOGI("Dump to File[%s] Completed", outcome.path.c_str());
    if (isSelfInitiated) {
        CheckCollectingFolder("MAX Limit reached of dump folder, Notifying RK");
    }
    return outcome;
}

// One wake-up of the dump thread. REQUIRES: the dump mutex is held.
DumpOutcome Dump() {
    TR_LOGI("Dumping Start..");
    CatchUp::Instance().Wait(kCatchUpLimit);
    CUtility* const utility = CUtility::Instance();
    DumpSnapshot snapshot = CDataProvider::Instance()->TakeSnapshot();
    const DumpForm form = utility->getDumpForm();

    const bool isSelfInitiated = utility->isSelfInitiatePending();
    if (isSelfInitiated && !MayAddToCollectingFolder()) {
        return {"", "the collecting service has not fetched what it was told of"};
    }
    if (snapshot.head.empty()) {  // which it never is: there is always a dictionary
        TR_LOGE("No compress data available");
        return {"", "no data"};
    }
    if (!folders::CheckSymbolicLink(paths::kTemporaryDump)) {
        TR_LOGE("Error occurred in CheckSymbolicLink..continuing");
        return {"", std::string("refused to write to ") + paths::kTemporaryDump};
    }
    return WriteDump(snapshot, form, isSelfInitiated);
}

}  // namespace

CDataDump* CDataDump::Instance() {
    if (m_pInstance == nullptr) {
        m_pInstance = new CDataDump();
    }
    return m_pInstance;
}

CDataDump::CDataDump() : m_Thread(g_thread_new("CDataDump", t_Main, this)) {
    TR_LOGI("CDataDump created");
}

CDataDump::~CDataDump() {
    TR_LOGI("%s called", __func__);
    m_bRuning = false;
    g_thread_unref(m_Thread);
}

void* CDataDump::t_Main(void* /*self*/) {
    TR_LOGI("%s called", __func__);
    if (!PrepareTemporaryFolder()) {
        return nullptr;
    }
    // Also at start, whatever the launch arguments are: the folder may have been over its limit
    // before.
    CheckCollectingFolder("MAX Limit dump folder is already over at start, Notifying RK");

    CTREventManager* const manager = CTREventManager::GetInstance();
    g_mutex_lock(manager->GetMutex());
    while (m_bRuning) {
        g_cond_wait(manager->GetCondition(), manager->GetMutex());
        DumpOutcome outcome;
        try {
            outcome = Dump();
        } catch (const std::exception& failure) {
            // Memory that ran out, above all; the next dump may be smaller.
            TR_LOGE("Dump failed: %s", failure.what());
            outcome.error = failure.what();
        }
        CUtility::Instance()->setSelfInitate(false);
        status::DumpEnded(outcome.path, outcome.error);
    }
    g_mutex_unlock(manager->GetMutex());
    return nullptr;
}
