#include "launch/status.h"

#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <fstream>
#include <sstream>

#include "platform/launch_interface.h"

namespace trelvo {

namespace {

// Beyond any text that is published; more is not read.
constexpr std::streamsize kMaxText = std::streamsize{64} * 1024;

std::string ReadText(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string text(kMaxText, '\0');
    file.read(text.data(), kMaxText);
    text.resize(static_cast<size_t>(file.gcount()));
    return text;
}

std::optional<int64_t> ToNumber(std::string_view text) {
    int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(value)
                                                                    : std::nullopt;
}

// Whether the process holds the lock of the file, by the kernel's own list: taking the lock to see
// whether it is free could keep a service from starting.
bool HoldsLock(pid_t pid, const std::string& path) {
    struct stat info {};
    if (stat(path.c_str(), &info) != 0) {
        return false;
    }
    std::ifstream locks("/proc/locks");
    const std::string inode = ":" + std::to_string(info.st_ino);
    for (std::string line; std::getline(locks, line);) {
        // 1: FLOCK  ADVISORY  WRITE 1234 fe:00:5678 0 EOF
        std::istringstream words(line);
        std::string number;
        std::string kind;
        std::string mode;
        std::string access;
        pid_t holder = 0;
        std::string file;
        words >> number >> kind >> mode >> access >> holder >> file;
        if (kind == "FLOCK" && holder == pid && file.size() > inode.size() &&
            file.compare(file.size() - inode.size(), inode.size(), inode) == 0) {
            return true;
        }
    }
    return false;
}

}  // namespace

Fields::Fields(std::string_view text) {
    std::istringstream lines{std::string(text)};
    for (std::string line; std::getline(lines, line);) {
        const size_t equals = line.find('=');
        if (equals != std::string::npos) {
            values_[line.substr(0, equals)] = line.substr(equals + 1);
        }
    }
}

std::optional<std::string> Fields::Text(std::string_view key) const {
    const auto found = values_.find(key);
    return found != values_.end() ? std::optional(found->second) : std::nullopt;
}

std::optional<int64_t> Fields::Number(std::string_view key) const {
    const auto found = values_.find(key);
    return found != values_.end() ? ToNumber(found->second) : std::nullopt;
}

std::vector<std::pair<std::string, int64_t>> Fields::NumbersAfter(std::string_view start) const {
    std::vector<std::pair<std::string, int64_t>> numbers;
    for (const auto& [key, value] : values_) {
        if (key.compare(0, start.size(), start) == 0) {
            if (const auto number = ToNumber(value)) {
                numbers.emplace_back(key.substr(start.size()), *number);
            }
        }
    }
    return numbers;
}

bool ServiceStatus::IsRecording() const {
    return pid.has_value() && capture.Number("alive") == 1;
}

std::optional<int64_t> ServiceStatus::NewestAgeMs() const {
    const auto taken = service.Number("newest_at");
    return taken ? std::optional(std::max<int64_t>(now_ms - *taken, 0)) : std::nullopt;
}

bool ServiceStatus::IsAboutToRead(time_t now) const {
    constexpr int64_t kStartSeconds = 3;
    const auto started = service.Number("started");
    if (!pid || !started) {
        return false;
    }
    const int64_t age = now - *started;  // negative where the clock was set back since
    return age >= 0 && age < kStartSeconds &&
           service.Number("newest_ms").value_or(0) < now_ms - 1000 * age;
}

ServiceStatus ReadServiceStatus(const std::string& runtime_folder) {
    using Milliseconds = std::chrono::milliseconds;
    const std::string folder = runtime_folder + "/";
    ServiceStatus status;
    status.upload = [&] {
        std::istringstream text(ReadText(folder + launch_interface::kUploadFile));
        int64_t value = 0;
        return text >> value ? std::optional(value) : std::nullopt;
    }();
    status.collector = Fields(ReadText(folder + launch_interface::kCollectorFile));
    const std::string lock = folder + launch_interface::kLockFile;
    std::string pid = ReadText(lock);
    pid.erase(std::find(pid.begin(), pid.end(), '\n'), pid.end());
    const auto number = ToNumber(pid);
    if (number && *number > 0 && HoldsLock(static_cast<pid_t>(*number), lock)) {
        status.pid = static_cast<pid_t>(*number);
        status.service = Fields(ReadText(folder + launch_interface::kStatusFile));
        status.capture = Fields(ReadText(folder + launch_interface::kCaptureFile));
        // Another service's, which has not been replaced yet.
        const auto publisher = status.service.Number("pid");
        if (publisher && *publisher != *number) {
            status.service = Fields();
        }
    }
    // After the texts, so that no age is negative.
    status.now_ms = std::chrono::duration_cast<Milliseconds>(
                        std::chrono::steady_clock::now().time_since_epoch())
                        .count();
    return status;
}

}  // namespace trelvo
