#include "collect/archive.h"

#define XXH_INLINE_ALL
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>
#include <xxhash.h>
#include <zstd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <new>
#include <system_error>
#include <tuple>

#include "dump/dump_reader.h"
#include "dump/survey.h"
#include "io/input.h"
#include "text/clock.h"

namespace trelvo {

namespace {

namespace fs = std::filesystem;

constexpr const char* kSent = "sent";
// One writer at a time: what a killed one left is written over by the next.
constexpr const char* kPart = ".part";
constexpr std::string_view kCompressed = ".zst";
constexpr std::string_view kEnd = ".dump.zst";
constexpr size_t kLongestHost = 64;

struct Origin {
    std::string host;
    std::string boot;
};

bool EndsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

std::string MadeFolder(const std::string& path) {
    // The unit has made it: a parent that is missing is a mistake in its name.
    if (mkdir(path.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    return path;
}

// By the dump's first clock line; by nothing but this machine's name where it has none, is damaged
// before, or is something else.
Origin OriginOf(const std::string& path) {
    std::array<char, kLongestHost + 1> name{};
    static_cast<void>(gethostname(name.data(), name.size() - 1));
    Origin origin{name.data(), "unknown"};
    try {
        const std::unique_ptr<Input> input = OpenInput(path);
        DumpReader reader(*input);
        ClockLines clocks;
        for (Record record; reader.Next(record);) {
            if (clocks.Take(record)) {
                origin = {clocks.Host(), clocks.Boot()};
                break;
            }
        }
    } catch (const DamageError&) {
        // It is kept all the same, for whoever can make something of it.
    }
    return origin;
}

// As a part of a file name: a host may be called anything.
std::string Tame(std::string name) {
    std::replace_if(
        name.begin(), name.end(),
        [](char c) {
            return !((c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
                     c == '.' || c == '-');
        },
        '-');
    name.resize(std::min(name.size(), kLongestHost));
    return name.empty() || name[0] == '.' ? "-" + name : name;
}

std::string NameOf(const Origin& origin, const timespec& time, uint64_t sum) {
    constexpr int kNanoseconds = 1000000;  // of a millisecond
    std::string name = Tame(origin.host) + "_";
    Clock(true).Append(int64_t{time.tv_sec} * 1000 + time.tv_nsec / kNanoseconds, "%Y%m%dT%H%M%S",
                       true, name);
    std::array<char, 16> digits{};
    static_cast<void>(
        std::snprintf(digits.data(), digits.size(), "%08x", static_cast<unsigned>(sum)));
    return name + "_" + origin.boot + "_" + digits.data() + std::string(kEnd);
}

// Copies a file, compressed unless it is already. Returns a checksum of what it read.
uint64_t Copy(const File& from, const File& to, bool compress) {
    const std::unique_ptr<ZSTD_CCtx, size_t (*)(ZSTD_CCtx*)> context(ZSTD_createCCtx(),
                                                                     ZSTD_freeCCtx);
    if (context == nullptr) {
        throw std::bad_alloc();
    }
    ZSTD_CCtx_setParameter(context.get(), ZSTD_c_checksumFlag, 1);
    std::vector<char> input(ZSTD_CStreamInSize());
    std::vector<char> output(ZSTD_CStreamOutSize());
    XXH3_state_t sum;
    XXH3_64bits_reset(&sum);
    for (size_t size = input.size(); size != 0;) {
        size = from.Read(input.data(), input.size());
        XXH3_64bits_update(&sum, input.data(), size);
        if (!compress) {
            to.Write(input.data(), size);
            continue;
        }
        const ZSTD_EndDirective step = size == 0 ? ZSTD_e_end : ZSTD_e_continue;
        ZSTD_inBuffer in{input.data(), size, 0};
        for (bool is_done = false; !is_done;) {
            ZSTD_outBuffer out{output.data(), output.size(), 0};
            const size_t left = ZSTD_compressStream2(context.get(), &out, &in, step);
            if (ZSTD_isError(left) != 0) {  // memory: nothing else can be wrong
                throw std::bad_alloc();
            }
            to.Write(output.data(), out.pos);
            is_done = step == ZSTD_e_end ? left == 0 : in.pos == in.size;
        }
    }
    return XXH3_64bits_digest(&sum);
}

}  // namespace

Archive::Archive(const std::string& path)
    : path_(path),
      sent_path_(path + "/" + kSent),
      folder_(AT_FDCWD, MadeFolder(path_), O_RDONLY | O_DIRECTORY),
      sent_(AT_FDCWD, MadeFolder(sent_path_), O_RDONLY | O_DIRECTORY) {
    int locked = 0;
    do {
        locked = flock(folder_.Get(), LOCK_EX);
    } while (locked != 0 && errno == EINTR);
    if (locked != 0) {
        folder_.Throw();
    }
}

void Archive::Store(const std::string& dump) const {
    const File source(AT_FDCWD, dump, O_RDONLY | O_NONBLOCK);
    const struct stat status = source.Status();
    if (!S_ISREG(status.st_mode)) {
        throw std::system_error(EINVAL, std::generic_category(), dump + ": not a regular file");
    }
    const Origin origin = OriginOf(dump);
    try {
        const File part(folder_.Get(), kPart, O_WRONLY | O_CREAT | O_TRUNC);
        const uint64_t sum = Copy(source, part, !EndsWith(dump, kCompressed));
        const std::array<timespec, 2> times{status.st_mtim, status.st_mtim};
        if (futimens(part.Get(), times.data()) != 0) {
            part.Throw();
        }
        const std::string name = NameOf(origin, status.st_mtim, sum);
        if (faccessat(sent_.Get(), name.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0) {
            static_cast<void>(unlinkat(folder_.Get(), kPart, 0));
            return;
        }
        part.Sync();
        if (renameat(folder_.Get(), kPart, folder_.Get(), name.c_str()) != 0) {
            part.Throw();
        }
        folder_.Sync();
    } catch (const std::exception&) {
        static_cast<void>(unlinkat(folder_.Get(), kPart, 0));
        throw;
    }
}

std::vector<ArchivedDump> Archive::List() const {
    std::vector<ArchivedDump> dumps;
    for (const bool sent : {false, true}) {
        for (const auto& entry : fs::directory_iterator(sent ? sent_path_ : path_)) {
            struct stat status {};
            if (EndsWith(entry.path().filename().string(), kEnd) &&
                lstat(entry.path().c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
                dumps.push_back({entry.path().string(), sent, status.st_mtime, status.st_ctime,
                                 static_cast<uint64_t>(status.st_size)});
            }
        }
    }
    std::sort(dumps.begin(), dumps.end(), [](const ArchivedDump& a, const ArchivedDump& b) {
        return std::tie(a.time, a.path) < std::tie(b.time, b.path);
    });
    return dumps;
}

void Archive::MarkSent(const ArchivedDump& dump) const {
    const std::string name = fs::path(dump.path).filename().string();
    if (renameat(folder_.Get(), name.c_str(), sent_.Get(), name.c_str()) != 0) {
        const int error = errno;
        if (faccessat(folder_.Get(), name.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) != 0) {
            return;
        }
        throw std::system_error(error, std::generic_category(), dump.path);
    }
    sent_.Sync();
    folder_.Sync();
}

void Archive::Prune(uint64_t max_bytes, time_t max_seconds,
                    const std::function<void(const ArchivedDump&)>& on_removed) const {
    std::vector<ArchivedDump> dumps = List();
    if (dumps.empty()) {
        return;
    }
    const time_t oldest = time(nullptr) - max_seconds;
    const std::string newest = dumps.back().path;
    uint64_t bytes = 0;  // of those that are young enough
    for (const ArchivedDump& dump : dumps) {
        bytes += dump.since < oldest ? 0 : dump.bytes;
    }
    std::stable_partition(dumps.begin(), dumps.end(),
                          [](const ArchivedDump& dump) { return dump.sent; });
    for (const ArchivedDump& dump : dumps) {
        if (dump.since >= oldest) {
            if (bytes <= max_bytes || dump.path == newest) {
                continue;
            }
            bytes -= dump.bytes;
        }
        if (unlink(dump.path.c_str()) == 0) {
            on_removed(dump);
        } else if (errno != ENOENT) {  // whoever took it may have moved it away
            throw std::system_error(errno, std::generic_category(), dump.path);
        }
    }
}

}  // namespace trelvo
