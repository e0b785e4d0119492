#include "CDataDump.h"

#include <dirent.h>
#include <sys/stat.h>
#include <vconf.h>

#include <boost/filesystem/operations.hpp>
#include <boost/version.hpp>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>

#include "CDataProvider.h"
#include "CTREventManager.h"
#include "CUtility.h"
#include "CatchUp.h"
#include "Log.h"

namespace fs = boost::filesystem;

CDataDump* CDataDump::m_pInstance = nullptr;
bool CDataDump::m_bRuning = true;

namespace {

constexpr const char* kTemporaryFolder = "/tmp/Trelvo_Dump";
constexpr const char* kTemporaryFile = "/tmp/Trelvo_Dump/trelvo_Temp.dump";
constexpr const char* kCollectingFolder = "/opt/usr/share/svc-rk/dump/";
constexpr const char* kDumpName = "trelvo";
constexpr const char* kUploadKey = "memory/trelvo/dlog_dump";
constexpr boost::chrono::milliseconds kCatchUpLimit(500);
constexpr unsigned long long kCollectingLimit = 20971520;  // bytes

// Boost renamed it in 1.74.
#if BOOST_VERSION >= 107400
constexpr auto kOverwrite = fs::copy_options::overwrite_existing;
#else
constexpr auto kOverwrite = fs::copy_option::overwrite_if_exists;
#endif

struct CloseFile {
    void operator()(FILE* file) const { static_cast<void>(std::fclose(file)); }
};

// False when the folder is missing and cannot be made. Anything else that is wrong with it shows
// when a dump is written.
bool PrepareTemporaryFolder() {
    DIR* const dir = opendir(kTemporaryFolder);
    if (dir != nullptr) {
        static_cast<void>(closedir(dir));
        return true;
    }
    if (errno != ENOENT) {
        return true;
    }
    TR_LOGI("Creating Trelvo Path [%s]", kTemporaryFolder);
    if (mkdir(kTemporaryFolder, 0755) != 0) {
        TR_LOGE("Unable to create Trelvo Path");
        return false;
    }
    return true;
}

// Tells the collecting service when its folder is over the limit, and then logs `message`.
void CheckCollectingFolder(const char* message) {
    unsigned long long size = 0;
    CUtility::Instance()->GetFoldersize(kCollectingFolder, size);
    if (size <= kCollectingLimit) {
        return;
    }
    if (vconf_set_int(kUploadKey, 1) != 0) {
        TR_LOGE("Data dump complete, Unable to set vconf:%s to 1", kUploadKey);
    }
    TR_LOGI("%s", message);
}

// True when the collecting service has fetched what it was told of, so that a self-initiated dump
// may be written.
bool MayAddToCollectingFolder() {
    int pending = 0;
    if (vconf_get_int(kUploadKey, &pending) != 0) {
        TR_LOGE("Unable to get vconf:%s status, aborting self initiated dump", kUploadKey);
        return false;
    }
    if (pending != 0) {
        TR_LOGI("Dump uploading pending from RK, abort self initiated dump");
        return false;
    }
    return true;
}

bool WriteTemporaryFile(DumpSnapshot& snapshot, DumpForm form) {
    const std::unique_ptr<FILE, CloseFile> file(std::fopen(kTemporaryFile, "wb"));
    if (file == nullptr) {
        TR_LOGE("Unable to open compressed file path: %s", kTemporaryFile);
        return false;
    }
    TR_LOGI("Dumping to File Started..[%s]", kTemporaryFile);
    snapshot.Drain(form, [&](const unsigned char* data, size_t size) {
        // A short write is not an error: the records may already be consumed, and a cut dump can be
        // read up to the cut.
        static_cast<void>(std::fwrite(data, 1, size, file.get()));
    });
    return true;
}

void CopyToDestination(const std::string& folder, DumpForm form, bool isSelfInitiated) {
    fs::path destination;
    // A folder that cannot be examined fails in the copy, which says so.
    static_cast<void>(CUtility::Instance()->GenerateUniqueName(
        folder, kDumpName, form == DumpForm::kZstd ? ".dump.zst" : ".dump", destination));
    boost::system::error_code copyError;
    boost::system::error_code removeError;
    fs::copy_file(kTemporaryFile, destination, kOverwrite, copyError);
    fs::remove(kTemporaryFile, removeError);
    if (copyError) {
        TR_LOGE("Could not copy file: error code: %s", copyError.message().c_str());
        return;
    }
    TR_LOGI("Dump to File[%s] Completed", destination.c_str());
    if (isSelfInitiated) {
        CheckCollectingFolder("MAX Limit reached of dump folder, Notifying RK");
    }
}

// One wake-up of the dump thread. REQUIRES: the dump mutex is held.
void Dump() {
    TR_LOGI("Dumping Start..");
    CatchUp::Instance().Wait(kCatchUpLimit);
    CUtility* const utility = CUtility::Instance();
    DumpSnapshot snapshot = CDataProvider::Instance()->TakeSnapshot();
    const DumpForm form = utility->getDumpForm();

    const bool isSelfInitiated = utility->isSelfInitiatePending();
    if (isSelfInitiated && !MayAddToCollectingFolder()) {
        utility->setSelfInitate(false);
        return;
    }
    if (snapshot.head.empty()) {  // which it never is: there is always a dictionary
        TR_LOGE("No compress data available");
        utility->setSelfInitate(false);
        return;
    }
    if (!utility->CheckSymbolicLink(kTemporaryFile)) {
        utility->setSelfInitate(false);
        TR_LOGE("Error occurred in CheckSymbolicLink..continuing");
        return;
    }
    if (WriteTemporaryFile(snapshot, form)) {
        const std::string folder = isSelfInitiated ? kCollectingFolder : utility->getDumpPath();
        if (folder.empty()) {
            // The temporary file stays: it is the only place where this dump is.
            TR_LOGE("File Path Not Available Abort..Dumping");
            return;
        }
        CopyToDestination(folder, form, isSelfInitiated);
    }
    utility->setSelfInitate(false);
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
        try {
            Dump();
        } catch (const std::exception& failure) {
            // Memory that ran out, above all; the next dump may be smaller.
            TR_LOGE("Dump failed: %s", failure.what());
            CUtility::Instance()->setSelfInitate(false);
        }
    }
    g_mutex_unlock(manager->GetMutex());
    return nullptr;
}
