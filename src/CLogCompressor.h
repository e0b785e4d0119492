#pragma once

#include <glib.h>

// Owns the compressor thread, which loads the code tables, drains the boot capture files and then
// follows the run-time ones. Creating the singleton starts the thread; it ends with the process,
// wherever it is at that moment.
class CLogCompressor {
public:
    // Called on the main thread only.
    static CLogCompressor* Instance();

    CLogCompressor();
    // Neither joins nor releases the thread, which runs until the process ends.
    ~CLogCompressor() = default;
    CLogCompressor(const CLogCompressor&) = delete;
    CLogCompressor& operator=(const CLogCompressor&) = delete;

    static void* t_Main(void* self);

private:
    static CLogCompressor* m_pInstance;

    GThread* m_Thread = nullptr;
};
