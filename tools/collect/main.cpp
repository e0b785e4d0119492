// trelvo-collect: the collecting service of a machine that has none. Takes the dumps that the
// recorder wrote by itself into an archive, hands each to a command, and lets the recorder write
// further ones. Killed at any moment, and started again, it neither loses nor doubles a dump.

#include <fcntl.h>
#include <fnmatch.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <vector>

#include "collect/archive.h"
#include "collect/file.h"
#include "commands/help_formatter.h"
#include "launch/launch_client.h"
#include "platform/launch_interface.h"
#include "text/escape.h"

namespace trelvo {

namespace {

namespace fs = std::filesystem;

constexpr int kFailed = 1;
constexpr int kUsage = 2;
constexpr int kTimedOut = 124;                   // the exit code of timeout(1)
constexpr int64_t kDay = int64_t{24} * 60 * 60;  // seconds

constexpr const char* kHelp =
    R"(The configuration file sets options by their long names, such as max-age = 7d. The command is
run by /bin/sh for each dump that it has not taken yet, with the dump's path in $DUMP, for up to
15 minutes. Exit code 0 says that the dump is safe elsewhere; after any other the dump stays in
the archive and is handed over again by the next run.

Exit codes:
  0  every dump is in the archive, and the command, if any, has taken it
  1  something failed, and is to be tried again; standard error says what
  2  wrong usage or configuration
)";

struct Options {
    std::string from = "/opt/usr/share/svc-rk/dump";
    std::string archive = "/var/lib/trelvo/archive";
    uint64_t max_size = uint64_t{200} << 20;  // bytes
    int64_t max_age = 30 * kDay;              // seconds
    std::string command;
};

void Complain(const std::string& message) {
    static_cast<void>(std::fprintf(stderr, "trelvo-collect: %s\n", Escape(message).c_str()));
}

class Collector {
public:
    explicit Collector(const Options& options) : options_(options) {}

    // Returns the exit code.
    int Run() {
        try {
            Work();
        } catch (const std::exception& error) {
            Fail(error.what());
        }
        Publish(fault_.empty() ? "done" : fault_);
        return fault_.empty() ? EXIT_SUCCESS : kFailed;
    }

private:
    void Work() {
        const File folder(AT_FDCWD, options_.from, O_RDONLY | O_DIRECTORY);
        if (folder.Status().st_uid != geteuid()) {
            // Its files in there, and the key, would be of no use to the recorder.
            throw std::runtime_error(options_.from +
                                     ": belongs to another user; run it as this one");
        }
        archive_.emplace(options_.archive);
        bool may_take = Take(folder);
        Prune();
        std::set<std::string> tried;
        for (auto dump = Next(tried); dump; dump = Next(tried)) {
            Publish("handing over " + dump->path);
            HandOver(*dump);
            tried.insert(dump->path);
            may_take = may_take && Take(folder);  // a slow command keeps no dump waiting
        }
        Prune();
    }

    // The oldest dump for the command.
    [[nodiscard]] std::optional<ArchivedDump> Next(const std::set<std::string>& tried) const {
        for (const ArchivedDump& dump : archive_->List()) {
            if (!dump.sent && !options_.command.empty() && tried.count(dump.path) == 0) {
                return dump;
            }
        }
        return std::nullopt;
    }

    // Moves the dumps of the collecting folder into the archive. False where one stays there.
    bool Take(const File& folder) {
        bool is_all = true;
        for (const std::string& path : Waiting()) {
            try {
                archive_->Store(path);
                if (unlink(path.c_str()) != 0) {
                    throw std::system_error(errno, std::generic_category(), path);
                }
            } catch (const std::system_error& error) {
                Fail(error.what());
                is_all = false;
            }
        }
        folder.Sync();
        if (is_all) {
            ResetKey();
        }
        return is_all;
    }

    // By name: the recorder numbers them.
    [[nodiscard]] std::vector<std::string> Waiting() const {
        std::vector<std::string> paths;
        for (const auto& entry : fs::directory_iterator(options_.from)) {
            const std::string name = entry.path().filename().string();
            // The same names as the path unit waits for, so that it does not find what this leaves.
            if (fnmatch("trelvo*.dump", name.c_str(), 0) == 0 ||
                fnmatch("trelvo*.dump.zst", name.c_str(), 0) == 0) {
                paths.push_back(entry.path().string());
            }
        }
        std::sort(paths.begin(), paths.end(), [](const std::string& a, const std::string& b) {
            return strverscmp(a.c_str(), b.c_str()) < 0;
        });
        return paths;
    }

    // A key that is missing stays so: somebody wants the recorder to write nothing.
    static void ResetKey() {
        const std::string path = RuntimeFolder() + "/" + launch_interface::kUploadFile;
        std::ifstream key(path);
        int value = 0;
        if (key >> value && value != 0) {
            ReplaceFile(path, "0\n");
        }
    }

    void Prune() {
        archive_->Prune(options_.max_size, options_.max_age, [this](const ArchivedDump& dump) {
            if (!dump.sent && !options_.command.empty()) {
                Complain(dump.path +
                         ": removed, by max-size or max-age, before the command took it");
            }
        });
    }

    void HandOver(const ArchivedDump& dump) {
        const int status = RunCommand(dump.path);
        const int code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        if (code == 0) {
            try {
                archive_->MarkSent(dump);
            } catch (const std::system_error& error) {
                Fail(error.what());  // the next run hands it over again
            }
        } else {
            Fail(dump.path + ": the command " +
                 (code == kTimedOut ? "took too long and was ended"
                  : code >= 0       ? "ended with exit code " + std::to_string(code)
                                    : "ended by signal " + std::to_string(WTERMSIG(status))));
        }
    }

    // Returns how it ended, as waitpid gives it. One that hangs must not keep the other dumps
    // waiting.
    [[nodiscard]] int RunCommand(const std::string& dump) const {
        constexpr std::string_view kVariable = "DUMP=";
        std::string path = std::string(kVariable) + dump;
        std::string command = options_.command;
        std::array<std::string, 5> words{"timeout", "--kill-after=10s", "15m", "/bin/sh", "-c"};
        const std::array<char*, 7> argv{words[0].data(), words[1].data(), words[2].data(),
                                        words[3].data(), words[4].data(), command.data(),
                                        nullptr};
        std::vector<char*> variables{path.data()};
        for (char** variable = environ; *variable != nullptr; ++variable) {
            if (std::string_view(*variable).substr(0, kVariable.size()) != kVariable) {
                variables.push_back(*variable);
            }
        }
        variables.push_back(nullptr);
        pid_t child = 0;
        const int error =
            posix_spawnp(&child, argv[0], nullptr, nullptr, argv.data(), variables.data());
        if (error != 0) {
            throw std::system_error(error, std::generic_category(), argv[0]);
        }
        int status = 0;
        while (waitpid(child, &status, 0) < 0) {
            if (errno != EINTR) {
                throw std::system_error(errno, std::generic_category(), argv[0]);
            }
        }
        return status;
    }

    // For `trelvoctl status`; best effort, as the state is in the folders.
    void Publish(const std::string& result) const {
        try {
            std::string text = "time=" + std::to_string(time(nullptr)) +
                               "\nresult=" + Escape(result) +
                               "\nfailed=" + (fault_.empty() ? "0" : "1") + "\n";
            if (archive_) {  // of one that could not be looked at nothing is known
                const std::vector<ArchivedDump> dumps = archive_->List();
                uint64_t bytes = 0;
                size_t waiting = 0;
                for (const ArchivedDump& dump : dumps) {
                    bytes += dump.bytes;
                    waiting += dump.sent || options_.command.empty() ? 0 : 1;
                }
                text += "dumps=" + std::to_string(dumps.size()) +
                        "\nbytes=" + std::to_string(bytes) +
                        "\nwaiting=" + std::to_string(waiting) + "\n";
            }
            ReplaceFile(RuntimeFolder() + "/" + launch_interface::kCollectorFile, text);
        } catch (const std::exception& error) {
            Complain(error.what());
        }
    }

    void Fail(const std::string& message) {
        Complain(message);
        fault_ = fault_.empty() ? message : fault_;
    }

    const Options& options_;
    std::optional<Archive> archive_;
    std::string fault_;  // the first one
};

int Main(int argc, char** argv) {
    Options options;
    CLI::App app(
        "Moves the dumps that the trelvo flight recorder wrote by itself into an archive, hands "
        "each to a command, and lets the recorder write further ones.",
        "trelvo-collect");
    app.set_version_flag("-V,--version", "trelvo-collect " TRELVO_VERSION);
    app.formatter(std::make_shared<HelpFormatter>());
    app.set_config("--config", "/etc/trelvo/collect.conf", "Configuration file")->type_name("FILE");
    app.allow_config_extras(CLI::config_extras_mode::error);
    // Otherwise a '#' within a quoted command would cut it; lines that begin with one stay
    // comments.
    app.get_config_formatter_base()->comment('\n');
    app.add_option("--from", options.from, "Where the recorder's own dumps are")
        ->type_name("DIR")
        ->capture_default_str();
    app.add_option("--archive", options.archive, "Where they go")
        ->type_name("DIR")
        ->capture_default_str();
    app.add_option("--max-size", options.max_size,
                   "Bytes of the archive, such as 200M; the oldest go")
        ->type_name("SIZE")
        ->transform(CLI::AsSizeValue(false).description(""))
        ->default_str("200M");
    app.add_option("--max-age", options.max_age,
                   "How long the archive keeps a dump, in s, m, h or d")
        ->type_name("TIME")
        ->transform(
            CLI::AsNumberWithUnit(
                std::map<std::string, int64_t>{{"s", 1}, {"m", 60}, {"h", 60 * 60}, {"d", kDay}},
                CLI::AsNumberWithUnit::UNIT_REQUIRED)
                .description(""))
        ->check(CLI::Range(int64_t{1}, 36500 * kDay).description(""))
        ->default_str("30d");
    app.add_option("--command", options.command, "Takes a dump elsewhere; none: they stay")
        ->type_name("COMMAND");
    app.footer(kHelp);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& success) {
        return app.exit(success);  // help or version
    } catch (const CLI::Error& error) {
        const bool is_file = dynamic_cast<const CLI::ConfigError*>(&error) != nullptr;
        const std::string file = app.get_config_ptr()->as<std::string>() + ": ";
        Complain((is_file ? file : "") + error.what());
        return kUsage;
    }
    return Collector(options).Run();
}

}  // namespace

}  // namespace trelvo

int main(int argc, char** argv) {
    try {
        return trelvo::Main(argc, argv);
    } catch (const std::exception& error) {
        static_cast<void>(std::fprintf(stderr, "trelvo-collect: %s\n", error.what()));
        return trelvo::kFailed;
    }
}
