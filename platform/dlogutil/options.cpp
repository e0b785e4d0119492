#include "dlogutil/options.h"

#include <getopt.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdlib>
#include <limits>
#include <stdexcept>

namespace dlogutil {
namespace {

// Leading digits count and the rest is ignored, as a size such as 512k is understood by everybody
// who gets it.
uint64_t ParseKibibytes(const std::string& text) {
    const long value = std::strtol(text.c_str(), nullptr, 10);
    if (value <= 0) {
        throw std::invalid_argument("-r " + text + ": not a size in KiB");
    }
    return static_cast<uint64_t>(std::min<long>(value, std::numeric_limits<int32_t>::max())) * 1024;
}

int ParseCount(const std::string& text) {
    int value = -1;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < 0 || value > 99) {
        throw std::invalid_argument("-n " + text + ": not a number from 0 to 99");
    }
    return value;
}

}  // namespace

void TagFilters::Add(std::string_view word) {
    const size_t colon = word.rfind(':');
    const std::string_view level =
        colon != std::string_view::npos ? word.substr(colon + 1) : std::string_view();
    const size_t minimum =
        level.size() == 1
            ? kLevels.find(static_cast<char>(std::toupper(static_cast<unsigned char>(level[0]))))
            : std::string_view::npos;
    if (minimum == std::string_view::npos) {
        throw std::invalid_argument("'" + std::string(word) +
                                    "' is not TAG:LEVEL with a level of " + std::string(kLevels));
    }
    minimum_[std::string(word.substr(0, colon))] = minimum;
}

bool TagFilters::Passes(std::string_view tag, char level) const {
    auto filter = minimum_.find(tag);
    if (filter == minimum_.end()) {
        filter = minimum_.find("*");
    }
    return filter != minimum_.end() && filter->second != kLevels.find('S') &&
           kLevels.find(level) >= filter->second;
}

bool TagFilters::Silences(std::string_view tag) const {
    const auto filter = minimum_.find(tag);
    return filter != minimum_.end() && filter->second == kLevels.find('S');
}

Options ParseOptions(int argc, char** argv) {
    Options options;
    optind = 0;  // glibc: starts anew, whatever was parsed before
    for (int option = 0; (option = getopt(argc, argv, ":r:n:f:v:")) != -1;) {
        switch (option) {
            case 'r':
                options.limit_bytes = ParseKibibytes(optarg);
                break;
            case 'n':
                options.rotated_count = ParseCount(optarg);
                break;
            case 'f':
                options.file = optarg;
                if (options.file.empty()) {
                    throw std::invalid_argument("-f needs a file name");
                }
                break;
            case 'v':
                if (std::string_view(optarg) != "kerneltime") {
                    throw std::invalid_argument(std::string("-v ") + optarg +
                                                ": only kerneltime is supported");
                }
                break;
            default:
                throw std::invalid_argument(std::string("-") + static_cast<char>(optopt) +
                                            (option == ':' ? " needs a value" : ": not an option"));
        }
    }
    for (int i = optind; i < argc; ++i) {
        options.filters.Add(argv[i]);
    }
    if (options.filters.IsEmpty()) {
        options.filters.Add("*:V");
    }
    // The service that started this capture would grow by its own messages being captured. Whoever
    // wants them names their tag.
    const char* const service_tag = std::getenv("TRELVO_SERVICE_TAG");
    if (service_tag != nullptr && !options.filters.Has(service_tag)) {
        options.filters.Add(std::string(service_tag) + ":S");
    }
    return options;
}

}  // namespace dlogutil
