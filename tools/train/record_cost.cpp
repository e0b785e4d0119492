#include "train/record_cost.h"

namespace trelvo {

namespace {

size_t HeaderSize(uint32_t index) {
    size_t size = 1;
    for (uint64_t limit = 16; index >= limit; limit <<= 7) {
        ++size;
    }
    return size;
}

}  // namespace

size_t Leb128Size(uint64_t value) {
    size_t size = 1;
    for (; value >= 64; value >>= 7) {
        ++size;
    }
    return size;
}

size_t MessageCost(size_t size) {
    return Leb128Size(size) + size;
}

size_t RecordModel::RecordSize(uint64_t delta_ms, std::string_view tag, int32_t pid, int32_t tid,
                               size_t message_cost) {
    key_.assign(tag);
    key_.append(reinterpret_cast<const char*>(&pid), sizeof pid);
    key_.append(reinterpret_cast<const char*>(&tid), sizeof tid);
    const auto next = static_cast<uint32_t>(indexes_.size() + 1);
    const uint32_t index = indexes_.try_emplace(key_, next).first->second;
    return Leb128Size(delta_ms) + HeaderSize(index) + message_cost;
}

}  // namespace trelvo
