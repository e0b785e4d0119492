#pragma once

#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace trelvo {

// Fields of a published text, as they stand there: nobody has checked them.
class Fields {
public:
    Fields() = default;
    // Lines key=value; other lines are left out.
    explicit Fields(std::string_view text);

    [[nodiscard]] std::optional<std::string> Text(std::string_view key) const;
    // Nothing for what is not a whole number, either.
    [[nodiscard]] std::optional<int64_t> Number(std::string_view key) const;
    // The numbers whose keys begin with `start`, by the rest of the key.
    [[nodiscard]] std::vector<std::pair<std::string, int64_t>> NumbersAfter(
        std::string_view start) const;

private:
    std::map<std::string, std::string, std::less<>> values_;
};

// What a service's runtime folder says about it.
struct ServiceStatus {
    std::optional<pid_t> pid;  // of the service that holds the folder's lock; nothing: none runs
    // Both empty unless a running service has published them.
    Fields service;
    Fields capture;
    std::optional<int64_t> upload;  // the collecting service's key
    Fields collector;               // what trelvo-collect last said, whether or not a service runs
    int64_t now_ms = 0;             // on the monotonic clock

    // Whether lines that are logged now reach the recorder, as far as anybody has said.
    [[nodiscard]] bool IsRecording() const;
    // How long ago the newest line was taken.
    [[nodiscard]] std::optional<int64_t> NewestAgeMs() const;
    // Whether the service has just started, at `now` on the wall clock, and has not read yet what
    // was logged before.
    [[nodiscard]] bool IsAboutToRead(time_t now) const;
};

// Never fails: what is missing or cannot be read is left out. Must run in the service's process
// namespace.
[[nodiscard]] ServiceStatus ReadServiceStatus(const std::string& runtime_folder);

std::string StatusJson(const ServiceStatus& status);
// Samples for a collector of text files, in the Prometheus text format.
std::string StatusMetrics(const ServiceStatus& status);
// A few lines for people; all that others wrote is escaped.
std::string StatusText(const ServiceStatus& status);

}  // namespace trelvo
