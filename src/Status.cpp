#include "Status.h"

#include <unistd.h>
#include <vconf.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <mutex>

#include "CDBOperations.h"
#include "CDataProvider.h"
#include "CatchUp.h"
#include "FixedPaths.h"

// May be absent: see below.
#pragma weak vconf_set_str

namespace status {

namespace {

constexpr int64_t kInterval = 1000;  // milliseconds

int64_t MonotonicMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// One line for each value: what a value brings in must not look like another one.
std::string OneLine(std::string text) {
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

class Publisher {
public:
    void SetPending(const char* trigger) {
        const std::lock_guard<std::mutex> lock(mutex_);
        pendingTrigger_ = trigger;
        isPending_ = true;
        Publish();
    }

    void SetEnded(const std::string& path, const std::string& error) {
        const std::lock_guard<std::mutex> lock(mutex_);
        ++dumps_;
        isPending_ = false;
        lastTime_ = std::time(nullptr);
        lastTrigger_ = pendingTrigger_;
        lastPath_ = OneLine(path);
        lastResult_ = error.empty() ? "written" : OneLine(error);
        lastIsCurrent_ = CatchUp::Instance().HasCaughtUp();
        Publish();
    }

    void AddSuppressed() {
        const std::lock_guard<std::mutex> lock(mutex_);
        ++suppressed_;
    }

    void Refresh() {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (MonotonicMs() - published_ >= kInterval) {
            Publish();
        }
    }

private:
    void Publish() {
        if (vconf_set_str == nullptr) {
            return;
        }
        CDataProvider* const provider = CDataProvider::Instance();
        const uint64_t accepted = statistics_.accepted;
        // Where the buffer is locked the figures of the last time have to do.
        static_cast<void>(provider->ReadStatistics(statistics_));
        const int64_t now = MonotonicMs();
        if (statistics_.accepted != accepted) {
            newestAt_ = now;
        }
        CDBOperations* const tables = CDBOperations::Instance();
        std::string text;
        const auto add = [&](const char* name, const std::string& value) {
            text.append(name).append("=").append(value).append("\n");
        };
        const auto number = [&](const char* name, auto value) { add(name, std::to_string(value)); };
        add("version", TRELVO_VERSION);
        number("pid", getpid());
        number("started", started_);
        number("accepted", statistics_.accepted);
        number("refused", statistics_.refused);
        number("dropped", statistics_.dropped);
        number("records", statistics_.records);
        number("record_bytes", statistics_.recordBytes);
        number("memory_bytes", statistics_.memory);
        number("limit_bytes", provider->GetBufferSize());
        add("count", statistics_.countsMemory ? "memory" : "records");
        if (statistics_.records != 0) {
            number("oldest_ms", statistics_.oldestMs);
            number("newest_ms", statistics_.newestMs);
        }
        if (statistics_.accepted != 0) {
            number("newest_at", newestAt_);
        }
        add("policy_version", OneLine(tables->GetPolicyVersion()));
        number("tables", tables->GetTableCount());
        number("dumps", dumps_);
        number("pending", isPending_ ? 1 : 0);
        if (dumps_ != 0) {
            number("last_dump_time", lastTime_);
            add("last_dump_trigger", lastTrigger_);
            add("last_dump_path", lastPath_);
            add("last_dump_result", lastResult_);
            number("last_dump_current", lastIsCurrent_ ? 1 : 0);
        }
        number("suppressed", suppressed_);
        if (text != text_) {
            std::string dated = text + "now=" + std::to_string(now) + "\n";
            published_ = now;
            if (vconf_set_str(paths::kStatusKey, dated.c_str()) == 0) {
                text_ = std::move(text);  // otherwise the next refresh tries again
            }
        }
    }

    std::mutex mutex_;
    const time_t started_ = std::time(nullptr);
    CDataProvider::Statistics statistics_;
    int64_t newestAt_ = 0;
    uint64_t dumps_ = 0;
    bool isPending_ = false;
    std::string pendingTrigger_;
    time_t lastTime_ = 0;
    std::string lastTrigger_;
    std::string lastPath_;
    std::string lastResult_;
    bool lastIsCurrent_ = false;  // it has all that was logged before
    uint64_t suppressed_ = 0;
    std::string text_;  // published last, without the time of it
    int64_t published_ = -kInterval;
};

Publisher& Instance() {
    static auto* const publisher = new Publisher();  // used until the process is gone
    return *publisher;
}

}  // namespace

void DumpPending(const char* trigger) {
    Instance().SetPending(trigger);
}

void DumpEnded(const std::string& path, const std::string& error) {
    Instance().SetEnded(path, error);
}

void MatchSuppressed() {
    Instance().AddSuppressed();
}

void Refresh() {
    Instance().Refresh();
}

}  // namespace status
