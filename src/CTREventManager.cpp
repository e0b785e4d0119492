#include "CTREventManager.h"

#include <cstdint>
#include <cstring>
#include <utility>

#include "CUtility.h"
#include "Log.h"
#include "Status.h"

CTREventManager* CTREventManager::m_pInstance = nullptr;
std::mutex CTREventManager::m_Mutex;
unsigned int CTREventManager::m_ulDumpTimer = 0;

namespace {

class DumpLock {
public:
    explicit DumpLock(GMutex* mutex) : m_Mutex(mutex) { g_mutex_lock(m_Mutex); }
    ~DumpLock() { g_mutex_unlock(m_Mutex); }
    DumpLock(const DumpLock&) = delete;
    DumpLock& operator=(const DumpLock&) = delete;

private:
    GMutex* m_Mutex;
};

}  // namespace

CTREventManager* CTREventManager::GetInstance() {
    if (m_pInstance == nullptr) {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        if (m_pInstance == nullptr) {
            TR_LOGI("m_pInstance Created");
            m_pInstance = new CTREventManager();
            m_pInstance->Initialize();
        }
    }
    return m_pInstance;
}

CTREventManager::CTREventManager() {
    g_mutex_init(&m_DumpMutex);
    g_cond_init(&m_DumpCondition);
    TR_LOGI("%s called", __func__);
}

CTREventManager::~CTREventManager() {
    UnRegisterDumpTimer();
    g_mutex_clear(&m_DumpMutex);
    g_cond_clear(&m_DumpCondition);
    TR_LOGI("%s called", __func__);
}

void CTREventManager::Initialize() {
    TR_LOGI("%s called", __func__);
}

void CTREventManager::RegisterDumpTimer(int seconds) {
    TR_LOGI("%s called", __func__);
    if (seconds < 1) {
        TR_LOGE("Invalid Time interval not registering timer");
        return;
    }
    m_TimerInterval = seconds;
    m_TimerEnabled = true;
    TR_LOGI("Registering Timer with [%d]sec", seconds);
    ResetDumpTimer();
}

void CTREventManager::UnRegisterDumpTimer() {
    TR_LOGI("%s called", __func__);
    if (m_ulDumpTimer != 0) {
        g_source_remove(m_ulDumpTimer);
        m_ulDumpTimer = 0;
    }
}

void CTREventManager::ResetDumpTimer() {
    if (!m_TimerEnabled) {
        return;
    }
    TR_LOGI("Reset Dump Timer");
    if (m_ulDumpTimer != 0) {
        UnRegisterDumpTimer();
    }
    m_ulDumpTimer =
        g_timeout_add_seconds(static_cast<guint>(m_TimerInterval), t_startTimerDump, this);
}

void CTREventManager::RegisterDumpOnPowerOff() {
    // Best effort: without the subscription the other triggers still work.
    static_cast<void>(device_power_subscribe_state_changed_event(t_OnPoweroff, nullptr));
}

void CTREventManager::UnRegisterDumpOnPowerOff() {
    static_cast<void>(device_power_unsubscribe_state_changed_event(t_OnPoweroff));
}

void CTREventManager::RequestDumpOnFile(std::string path, DumpForm form) {
    TR_LOGI("%s called", __func__);
    SignalDumpData(std::move(path), form);
}

void CTREventManager::SignalDumpData(std::string path, DumpForm form) {
    TR_LOGI("%s called", __func__);
    const DumpLock lock(&m_DumpMutex);
    ResetDumpTimer();
    if (CUtility::Instance()->setDumpPath(std::move(path))) {
        CUtility::Instance()->setRequestedForm(form);
        if (!CUtility::Instance()->isSelfInitiatePending()) {
            status::DumpPending("request");
        }  // else that dump is the only one
        g_cond_signal(&m_DumpCondition);
    }
}

void CTREventManager::RequestDumpOnFullBuffer() {
    TR_LOGI("%s called", __func__);
    SignalSelfInitiateDumpData("full");
}

void CTREventManager::RequestDumpOnMatch() {
    TR_LOGI("%s called", __func__);
    SignalSelfInitiateDumpData("match");
}

void CTREventManager::SetSelfInitiatedForm(DumpForm form) {
    const DumpLock lock(&m_DumpMutex);
    CUtility::Instance()->setSelfInitiatedForm(form);
}

void CTREventManager::SignalSelfInitiateDumpData(const char* trigger) {
    TR_LOGI("%s called", __func__);
    const DumpLock lock(&m_DumpMutex);
    ResetDumpTimer();
    CUtility::Instance()->setSelfInitate(true);
    status::DumpPending(trigger);
    g_cond_signal(&m_DumpCondition);
}

int CTREventManager::t_OnPoweroff(_device_power_state_info* info, void* /*user_data*/) {
    TR_LOGI("%s called", __func__);
    // The state that the device goes into, by position: SDKs name the field differently.
    constexpr size_t kNextStateOffset = 8;
    constexpr uint64_t kStandby = 0x200000000;
    uint64_t nextState = 0;
    std::memcpy(&nextState, reinterpret_cast<const char*>(info) + kNextStateOffset,
                sizeof nextState);
    if (nextState != kStandby) {
        return 0;
    }
    TR_LOGI("Going to Stanby...");
    GetInstance()->SignalSelfInitiateDumpData("power-off");
    return 0;
}

gboolean CTREventManager::t_startTimerDump(void* /*data*/) {
    TR_LOGI("%s called", __func__);
    GetInstance()->SignalSelfInitiateDumpData("timer");
    // The trigger has already replaced this source by a new one; the result keeps nothing.
    return TRUE;
}
