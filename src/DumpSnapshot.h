#pragma once

#include <vector>

#include "RecordStore.h"

// What a dump file holds: the bytes as they are, or the same bytes as a chain of zstd frames.
enum class DumpForm { kPlain, kZstd };

// The recorder at one moment, to be written without any lock.
struct DumpSnapshot {
    std::vector<unsigned char> head;  // policy version, dictionary, last log time
    RecordStore::Snapshot records;

    // Hands the dump on, piece by piece, and gives the records' memory back meanwhile.
    // Throws what RecordStore::Snapshot::Drain throws.
    void Drain(DumpForm form, const RecordStore::Sink& sink);
};
