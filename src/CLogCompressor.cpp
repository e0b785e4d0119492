#include "CLogCompressor.h"

#include <unistd.h>

#include "CDBOperations.h"
#include "CDataProvider.h"
#include "Log.h"

CLogCompressor* CLogCompressor::m_pInstance = nullptr;

CLogCompressor* CLogCompressor::Instance() {
    if (m_pInstance == nullptr) {
        m_pInstance = new CLogCompressor();
    }
    return m_pInstance;
}

CLogCompressor::CLogCompressor() {
    m_Thread = g_thread_new("CLogCompressor", t_Main, this);
}

void* CLogCompressor::t_Main(void* /*self*/) {
    TR_LOGI("%s called", __func__);
    CDBOperations::Instance()->CreateHashMap();
    CDataProvider* const provider = CDataProvider::Instance();
    provider->m_GetBootDataBuffer();
    for (;;) {
        provider->m_GetDataBuffer();
        static_cast<void>(sleep(1));
    }
}
