#include "configuration.h"

#include <glib.h>
#include <grp.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <limits>
#include <string_view>
#include <utility>
#include <vector>

#include "dlog_threshold.h"
#include "handles.h"

namespace port {
namespace {

struct Key {
    const char* group;
    const char* name;
    const char* launch;     // the launch key that takes its value
    const char* otherwise;  // the value where the file has none; nullptr to leave the key out
};

constexpr std::array<Key, 16> kKeys = {{
    {"recorder", "tags", "LOGTAG", "*:I"},
    {"recorder", "size", "RQBHISTORY", "10 MiB"},
    {"recorder", "size-counts", "RQBCOUNT", nullptr},
    {"recorder", "capture", "RQBBUFFER", "4 MiB"},
    {"recorder", "tables", "POLICYMODE", "default"},
    {"policy", "rows", "POLICYROWS", nullptr},
    {"policy", "memory", "POLICYKIB", nullptr},
    {"policy", "seconds", "POLICYSECONDS", nullptr},
    {"dump", "triggers", "DLOGDUMPMODE", nullptr},
    {"dump", "timer", "DLOGDUMPVALUE", nullptr},
    {"dump", "match", "DLOGDUMPMATCH", nullptr},
    {"dump", "match-delay", "DLOGDUMPDELAY", nullptr},
    {"dump", "match-rest", "DLOGDUMPREST", nullptr},
    {"dump", "form", "DUMPFORM", nullptr},
    {"dump", "group", nullptr, nullptr},
    {"log", "threshold", nullptr, nullptr},
}};

std::string_view Trim(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\r";
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
    return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

// The items between semicolons; a last empty one does not count.
std::vector<std::string_view> Items(std::string_view text) {
    std::vector<std::string_view> items;
    for (const std::string_view item : SplitWords(text, ';')) {
        items.push_back(Trim(item));
    }
    if (items.back().empty()) {
        items.pop_back();
    }
    return items;
}

std::string Join(const std::vector<std::string_view>& words, char separator) {
    std::string text;
    for (const std::string_view word : words) {
        text += std::string(word) + separator;
    }
    text.resize(text.size() - std::min<size_t>(text.size(), 1));
    return text;
}

// The size in whole KiB; empty for anything but a number and a unit.
std::string Kibibytes(std::string_view text) {
    constexpr std::array<std::pair<std::string_view, uint64_t>, 3> kUnits = {
        {{"KiB", 1}, {"MiB", 1024}, {"GiB", 1024 * 1024}}};
    uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const auto unit = Trim(text.substr(static_cast<size_t>(end - text.data())));
    const auto* const found = std::find_if(kUnits.begin(), kUnits.end(),
                                           [unit](const auto& row) { return row.first == unit; });
    const auto most = static_cast<uint64_t>(std::numeric_limits<int32_t>::max());
    return error != std::errc() || found == kUnits.end() || number == 0 ||
                   number > most / found->second
               ? ""
               : std::to_string(number * found->second);
}

// One file while it is read.
class Reader {
public:
    explicit Reader(std::string path) : path_(std::move(path)), file_(g_key_file_new()) {}

    Configuration Read() {
        g_autoptr(GError) error = nullptr;
        if (g_key_file_load_from_file(file_.get(), path_.c_str(), G_KEY_FILE_KEEP_TRANSLATIONS,
                                      &error) == FALSE) {
            throw ConfigurationError(path_ + ": " + error->message);
        }
        RefuseUnknown();
        for (const Key& key : kKeys) {
            if (const auto value = Value(key)) {
                Take(key, *value);
            }
        }
        // What is wrong with a value is found out once; what a missing one means would be noise.
        if (faults_.empty()) {
            for (const Fault& fault : CheckFirstLaunch(configuration_.launch)) {
                Report(NameOf(fault.key), fault.text);
            }
        }
        if (!faults_.empty()) {
            throw ConfigurationError(faults_);
        }
        return std::move(configuration_);
    }

private:
    void Report(const std::string& where, const std::string& text) {
        faults_ += (faults_.empty() ? "" : "\n") + path_ + ": " + where + ": " + text;
    }

    static std::string NameOf(const Key& key) {
        return std::string("[") + key.group + "] " + key.name;
    }
    static std::string NameOf(const std::string& launch) {
        const auto* const key = std::find_if(kKeys.begin(), kKeys.end(), [&launch](const Key& row) {
            return row.launch != nullptr && (row.launch == launch || launch == "LOGLEVEL");
        });
        return key != kKeys.end() ? NameOf(*key) : launch;
    }

    void RefuseUnknown() {
        std::vector<std::string_view> groups(kKeys.size());
        std::transform(kKeys.begin(), kKeys.end(), groups.begin(),
                       [](const Key& key) { return key.group; });
        const Handle<char*, g_strfreev> found(g_key_file_get_groups(file_.get(), nullptr));
        for (char** group = found.get(); *group != nullptr; ++group) {
            if (std::find(groups.begin(), groups.end(), *group) == groups.end()) {
                Report("[" + std::string(*group) + "]",
                       "unknown group" + DidYouMean(*group, groups));
                continue;
            }
            std::vector<std::string_view> known;
            for (const Key& key : kKeys) {
                if (key.group == std::string_view(*group)) {
                    known.emplace_back(key.name);
                }
            }
            const Handle<char*, g_strfreev> names(
                g_key_file_get_keys(file_.get(), *group, nullptr, nullptr));
            for (char** name = names.get(); *name != nullptr; ++name) {
                if (std::find(known.begin(), known.end(), *name) == known.end()) {
                    Report("[" + std::string(*group) + "] " + *name,
                           "unknown key" + DidYouMean(*name, known));
                }
            }
        }
    }

    std::optional<std::string> Value(const Key& key) {
        const Handle<char, g_free> value(
            g_key_file_get_value(file_.get(), key.group, key.name, nullptr));
        if (value) {
            return std::string(Trim(value.get()));
        }
        return key.otherwise != nullptr ? std::optional<std::string>(key.otherwise) : std::nullopt;
    }

    void Take(const Key& key, const std::string& value) {
        const std::string_view name = key.name;
        auto& launch = configuration_.launch;
        if (name == "tags") {
            TakeTags(key, value);
        } else if (name == "size" || name == "capture" || name == "memory") {
            launch[key.launch] = Kibibytes(value);
            if (launch[key.launch].empty()) {
                Report(NameOf(key), Quoted(value) + " is not a size such as 512 KiB or 10 MiB");
            }
        } else if (name == "tables") {
            if (value != "default" && value != "server") {
                Report(NameOf(key), Quoted(value) + " is not one of default, server" +
                                        DidYouMean(value, {"default", "server"}));
            }
            launch[key.launch] = value == "server" ? "1" : "0";
        } else if (name == "triggers" || name == "match") {
            if (value.find('&') != std::string::npos) {
                Report(NameOf(key), "holds a '&', which cannot be part of an item");
            }
            launch[key.launch] = Join(Items(value), '&');
        } else if (name == "threshold") {
            configuration_.log_threshold = LevelNamed(value);
            if (!configuration_.log_threshold) {
                Report(NameOf(key), Quoted(value) + " is not one of " + Join(LevelNames(), ' ') +
                                        DidYouMean(value, LevelNames()));
            }
        } else if (name == "group") {
            if (const struct group* const found = getgrnam(value.c_str())) {
                configuration_.group = found->gr_gid;
            } else {
                Report(NameOf(key), Quoted(value) + " is not a group of this machine");
            }
        } else {
            launch[key.launch] = value;
        }
    }

    void TakeTags(const Key& key, const std::string& value) {
        std::vector<std::string_view> tags;
        std::vector<std::string_view> levels;
        for (const std::string_view item : Items(value)) {
            const size_t colon = item.rfind(':');
            if (colon == std::string_view::npos || item.find('/') != std::string_view::npos) {
                Report(
                    NameOf(key),
                    Quoted(item) + " is not TAG:LEVEL" +
                        (colon != std::string_view::npos ? "; a '/' cannot be part of a tag" : ""));
                continue;
            }
            tags.push_back(item.substr(0, colon));
            levels.push_back(item.substr(colon + 1));
        }
        configuration_.launch["LOGTAG"] = Join(tags, '/');
        configuration_.launch["LOGLEVEL"] = Join(levels, '/');
    }

    std::string path_;
    Handle<GKeyFile, g_key_file_unref> file_;
    Configuration configuration_;
    std::string faults_;
};

}  // namespace

Configuration ReadConfiguration(const std::string& path) {
    return Reader(path).Read();
}

}  // namespace port
