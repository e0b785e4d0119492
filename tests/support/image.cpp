#include "support/image.h"

#include <algorithm>

#include "CDataProvider.h"
#include "CTREventManager.h"
#include "CUtility.h"
#include "dump/dump_reader.h"

namespace test_support {

using namespace trelvo;

Bytes Snapshot(bool consume) {
    Bytes image;
    GMutex* const mutex = CTREventManager::GetInstance()->GetMutex();
    g_mutex_lock(mutex);
    CUtility::Instance()->setSelfInitate(consume);
    CDataProvider::Instance()->m_GetCompressedData(image);
    CUtility::Instance()->setSelfInitate(false);
    g_mutex_unlock(mutex);
    return image;
}

namespace {

class ImageInput : public Input {
public:
    explicit ImageInput(const Bytes& image) : image_(image) {}

    [[nodiscard]] size_t Read(char* data, size_t size) override {
        const size_t count = std::min(size, image_.size() - position_);
        std::copy_n(image_.data() + position_, count, data);
        position_ += count;
        return count;
    }
    void Seek(uint64_t offset) override { position_ = static_cast<size_t>(offset); }

private:
    const Bytes& image_;
    size_t position_ = 0;
};

}  // namespace

std::vector<std::string> Decode(const Bytes& image) {
    ImageInput input(image);
    DumpReader reader(input);
    std::vector<std::string> lines;
    for (Record record; reader.Next(record);) {
        const Source& source = record.source;
        lines.push_back(record.level + ("/" + std::string(source.tag)) + "(P " +
                        std::to_string(source.pid) + ", T " + std::to_string(source.tid) +
                        "): " + std::string(record.message));
    }
    return lines;
}

}  // namespace test_support
