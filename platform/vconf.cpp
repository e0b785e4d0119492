#include "vconf.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>

#include "collecting_folder.h"
#include "dump_progress.h"
#include "handles.h"
#include "runtime_folder.h"

namespace {

constexpr std::string_view kWhiteSpace = " \t\n\r\v\f";

// One small text file per key, in a folder per part of the key.
std::string PathOf(const char* key) {
    const std::string parts = std::string("/") + (key != nullptr ? key : "") + "/";
    if (parts.find("//") != std::string::npos || parts.find("/../") != std::string::npos ||
        parts.find("/./") != std::string::npos) {
        throw std::invalid_argument("not a key");
    }
    return port::RuntimeFolder() + "/vconf" + parts.substr(0, parts.size() - 1);
}

int Read(const std::string& path) {
    const port::UniqueFd file(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    std::array<char, 64> buffer{};
    const ssize_t size = file ? read(file.Get(), buffer.data(), buffer.size()) : -1;
    if (size < 0) {
        port::ThrowErrno(path);
    }
    std::string_view text(buffer.data(), static_cast<size_t>(size));
    text.remove_prefix(std::min(text.find_first_not_of(kWhiteSpace), text.size()));
    text = text.substr(0, text.find_last_not_of(kWhiteSpace) + 1);
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    // A full buffer may hold only the beginning of a longer text.
    if (error != std::errc() || end != text.data() + text.size() ||
        static_cast<size_t>(size) == buffer.size()) {
        throw std::runtime_error(path + ": not a number");
    }
    return value;
}

std::string ReadText(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string text(std::istreambuf_iterator<char>(file), {});
    if (!file) {
        throw std::runtime_error(path);
    }
    return text;
}

// Replaces the file, so that no reader sees half a value.
void Write(const std::string& path, const std::string& text) {
    for (auto slash = path.find("/vconf/"); slash != std::string::npos;
         slash = path.find('/', slash + 1)) {
        if (mkdir(path.substr(0, slash).c_str(), S_IRWXU) != 0 && errno != EEXIST) {
            port::ThrowErrno(path);
        }
    }
    std::string temporary = path + ".XXXXXX";
    const port::UniqueFd file(mkostemp(temporary.data(), O_CLOEXEC));
    if (!file) {
        port::ThrowErrno(temporary);
    }
    if (write(file.Get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
        std::rename(temporary.c_str(), path.c_str()) != 0) {
        const int error = errno;
        static_cast<void>(unlink(temporary.c_str()));
        throw std::system_error(error, std::generic_category(), path);
    }
}

}  // namespace

int vconf_get_int(const char* key, int* value) {
    if (value == nullptr) {
        return -1;
    }
    try {
        *value = Read(PathOf(key));
        return 0;
    } catch (const std::exception&) {
        return -1;
    }
}

int vconf_set_int(const char* key, int value) {
    try {
        Write(PathOf(key), std::to_string(value) + "\n");
        return 0;
    } catch (const std::exception&) {
        return -1;
    }
}

char* vconf_get_str(const char* key) {
    try {
        return strdup(ReadText(PathOf(key)).c_str());
    } catch (const std::exception&) {
        return nullptr;
    }
}

int vconf_set_str(const char* key, const char* value) {
    if (value == nullptr) {
        return -1;
    }
    try {
        Write(PathOf(key), value);
        if (port::TakePublished(key, value)) {
            port::WatchCollectingFolder();
        }
        return 0;
    } catch (const std::exception&) {
        return -1;
    }
}
