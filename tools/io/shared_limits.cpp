#include "io/shared_limits.h"

#include <iterator>
#include <set>
#include <utility>

namespace trelvo {

namespace {

constexpr size_t kMostActive = 64;
// The program itself and what lines are made from take the rest of 64 MiB.
constexpr uint64_t kFreeBytes = uint64_t{36} << 20;
constexpr uint64_t kBytesPerByte = 2;

struct Memory {
    uint64_t admitted = 0;
    uint64_t taken = 0;
    std::set<std::pair<dev_t, ino_t>> files;
};

Memory& OfProcess() {
    static Memory memory;
    return memory;
}

}  // namespace

Parkable::Active& Parkable::All() {
    static Active active;
    return active;
}

void Parkable::Use() {
    if (active_) {
        All().splice(All().end(), All(), place_);
        return;
    }
    while (All().size() >= kMostActive && ParkOldest()) {
    }
    place_ = All().insert(All().end(), this);
    active_ = true;
}

void Parkable::Leave() {
    if (active_) {
        All().erase(place_);
        active_ = false;
    }
}

bool Parkable::ParkOldest() {
    if (All().size() <= 2) {
        return false;
    }
    Parkable* const oldest = All().front();
    oldest->Leave();
    oldest->Park();
    return true;
}

void MemoryCharge::Admit(uint64_t bytes) {
    OfProcess().admitted += bytes;
}

void MemoryCharge::AdmitFile(const struct stat& status) {
    if (OfProcess().files.emplace(status.st_dev, status.st_ino).second) {
        Admit(static_cast<uint64_t>(status.st_size));
    }
}

MemoryCharge& MemoryCharge::operator=(MemoryCharge&& other) noexcept {
    std::swap(bytes_, other.bytes_);
    return *this;
}

MemoryCharge::~MemoryCharge() {
    OfProcess().taken -= bytes_;
}

bool MemoryCharge::Set(uint64_t bytes) {
    Memory& memory = OfProcess();
    const uint64_t most = kFreeBytes + kBytesPerByte * memory.admitted;
    while (bytes > bytes_ && memory.taken - bytes_ + bytes > most) {
        if (!Parkable::ParkOldest()) {
            return false;
        }
    }
    memory.taken += bytes - bytes_;
    bytes_ = bytes;
    return true;
}

}  // namespace trelvo
