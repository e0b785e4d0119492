#include "launch_check.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <limits>
#include <numeric>
#include <optional>
#include <utility>

namespace port {
namespace {

using Words = std::vector<std::string_view>;

constexpr size_t kMaxQuoted = 60;  // bytes
constexpr size_t kMaxFaults = 10;
constexpr int kMaxCount = 999999999;
constexpr int kMaxMatchSeconds = 1000000;  // as the service takes them
constexpr std::string_view kLevels = "VDIWEFS";
constexpr std::string_view kLevelHelp = "a level is one of V D I W E F, or S for nothing";
constexpr std::string_view kMatchLevels = "VDIWEF";
constexpr std::string_view kMatchLevelHelp = "the least level to match is one of V D I W E F";
// What the shell, through which the service starts the capture, would not take as it is.
constexpr std::string_view kShellCharacters = "|&;<>()$`\\\"'#~{}[]?!*";
const Words kTriggers = {"timer", "poweroff", "bufferfull", "match"};
const Words kNeeded = {"LOGTAG", "LOGLEVEL", "RQBBUFFER", "POLICYMODE"};
const Words kKeys = {"LOGTAG",       "LOGLEVEL",      "RQBBUFFER",     "POLICYMODE",
                     "DLOGDUMPMODE", "DLOGDUMPVALUE", "DLOGDUMPMATCH", "DLOGDUMPDELAY",
                     "DLOGDUMPREST", "RQBCOUNT",      "RQBHISTORY",    "DUMPFORM",
                     "POLICYROWS",   "POLICYKIB",     "POLICYSECONDS", "DUMP"};

bool Contains(const Words& words, std::string_view word) {
    return std::find(words.begin(), words.end(), word) != words.end();
}

std::string Join(const Words& words) {
    return std::accumulate(words.begin(), words.end(), std::string(),
                           [](const std::string& text, std::string_view word) {
                               return text + (text.empty() ? "" : ", ") + std::string(word);
                           });
}

bool IsLevel(std::string_view word) {
    return word.size() == 1 &&
           kLevels.find(static_cast<char>(std::toupper(static_cast<unsigned char>(word[0])))) !=
               std::string_view::npos;
}

bool IsControl(char c) {
    return static_cast<unsigned char>(c) < ' ' || c == '\x7F';
}

// Damerau-Levenshtein with transpositions of neighbours, without regard to case.
size_t Distance(std::string_view a, std::string_view b) {
    const auto same = [](char x, char y) {
        return std::tolower(static_cast<unsigned char>(x)) ==
               std::tolower(static_cast<unsigned char>(y));
    };
    std::vector<std::vector<size_t>> rows(a.size() + 1, std::vector<size_t>(b.size() + 1));
    for (size_t i = 0; i <= a.size(); ++i) {
        for (size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                rows[i][j] = i + j;
                continue;
            }
            rows[i][j] = std::min({rows[i - 1][j] + 1, rows[i][j - 1] + 1,
                                   rows[i - 1][j - 1] + (same(a[i - 1], b[j - 1]) ? 0 : 1)});
            if (i > 1 && j > 1 && same(a[i - 1], b[j - 2]) && same(a[i - 2], b[j - 1])) {
                rows[i][j] = std::min(rows[i][j], rows[i - 2][j - 2] + 1);
            }
        }
    }
    return rows[a.size()][b.size()];
}

// Collects the faults of one request.
class Checker {
public:
    explicit Checker(const LaunchArguments& arguments) : arguments_(arguments) {}

    void Report(std::string_view key, std::string text) {
        faults_.push_back({std::string(key), std::move(text)});
    }

    void Keys() {
        for (const auto& [key, value] : arguments_) {
            if (!Contains(kKeys, key)) {
                Report(Quoted(key), "unknown key" + DidYouMean(key, kKeys));
            } else if (std::any_of(value.begin(), value.end(), IsControl)) {
                Report(key, "holds a control character");
            }
        }
    }

    std::optional<std::string_view> Find(std::string_view key) const {
        const auto found = arguments_.find(std::string(key));
        return found != arguments_.end() ? std::optional<std::string_view>(found->second)
                                         : std::nullopt;
    }

    void Number(std::string_view key, int least, const std::string& unit,
                int most = std::numeric_limits<int>::max()) {
        const auto text = Find(key);
        if (!text) {
            return;
        }
        int value = 0;
        const auto error = std::from_chars(text->data(), text->data() + text->size(), value).ec;
        // The service takes neither a sign nor more digits than are needed.
        if (error != std::errc() || std::to_string(value) != *text || value < least ||
            value > most) {
            Report(key, Quoted(*text) + " is not a number of " + unit + ", from " +
                            std::to_string(least) + " to " + std::to_string(most));
        }
    }

    void Form() { OneOf("DUMPFORM", {"plain", "zstd"}); }

    void OneOf(std::string_view key, const Words& words) {
        if (const auto text = Find(key); text && !Contains(words, *text)) {
            Report(key, Quoted(*text) + " is not one of " + Join(words) + DidYouMean(*text, words));
        }
    }

    void TagsAndLevels() {
        const auto tags = SplitWords(Find("LOGTAG").value_or(""), '/');
        const auto levels = SplitWords(Find("LOGLEVEL").value_or(""), '/');
        for (const std::string_view tag : Find("LOGTAG") ? tags : Words()) {
            Tag("LOGTAG", tag);
        }
        for (const std::string_view level : Find("LOGLEVEL") ? levels : Words()) {
            if (!IsLevel(level)) {
                Report("LOGLEVEL", Quoted(level) + ": " + std::string(kLevelHelp));
            }
        }
        if (Find("LOGTAG") && Find("LOGLEVEL") && tags.size() != levels.size()) {
            Report("LOGLEVEL", std::to_string(levels.size()) + " levels for " +
                                   std::to_string(tags.size()) +
                                   " tags; every tag of LOGTAG needs its own");
        }
    }

    void Triggers() {
        for (const std::string_view word : SplitWords(Find("DLOGDUMPMODE").value_or(""), '&')) {
            if (!word.empty() && !Contains(kTriggers, word)) {
                Report("DLOGDUMPMODE", Quoted(word) + " is not one of " + Join(kTriggers) +
                                           DidYouMean(word, kTriggers));
            }
        }
        Number("DLOGDUMPVALUE", 1, "seconds");
        Number("DLOGDUMPDELAY", 0, "seconds", kMaxMatchSeconds);
        Number("DLOGDUMPREST", 0, "seconds", kMaxMatchSeconds);
        if (HasTrigger(arguments_, "timer") && !Find("DLOGDUMPVALUE")) {
            Report("DLOGDUMPVALUE", "missing; the trigger timer needs its seconds");
        }
        const auto items = Find("DLOGDUMPMATCH");
        if (HasTrigger(arguments_, "match") != items.has_value()) {
            Report(items ? "DLOGDUMPMODE" : "DLOGDUMPMATCH",
                   items ? "lacks the word match, without which no line is looked for"
                         : "missing; the trigger match needs its TAG:LEVEL[:TEXT]");
        }
        for (const std::string_view item : items ? SplitWords(*items, '&') : Words()) {
            MatchItem(item);
        }
    }

    // The first ones, and how many more there are: a request may be wrong in thousands of places.
    std::vector<Fault> Take() {
        if (faults_.size() > kMaxFaults) {
            const size_t more = faults_.size() - kMaxFaults;
            faults_.resize(kMaxFaults);
            Report("further errors", std::to_string(more));
        }
        return std::move(faults_);
    }

private:
    void Tag(std::string_view key, std::string_view tag) {
        if (tag.empty()) {
            Report(key, "holds an empty tag");
        } else if (tag != "*" && std::any_of(tag.begin(), tag.end(), [](char c) {
                       return IsControl(c) || c == ' ' ||
                              kShellCharacters.find(c) != std::string_view::npos;
                   })) {
            Report(key, Quoted(tag) + " is not a tag: blanks and " + std::string(kShellCharacters) +
                            " cannot be part of one; * alone stands for all other tags");
        } else if (tag.front() == '-') {
            Report(key, Quoted(tag) + " would be taken for an option; a tag cannot begin with -");
        }
    }

    void MatchItem(std::string_view item) {
        constexpr std::string_view kKey = "DLOGDUMPMATCH";
        const size_t tag_end = item.find(':');
        if (tag_end == 0 || tag_end == std::string_view::npos) {
            Report(kKey, Quoted(item) + " is not TAG:LEVEL[:TEXT]");
            return;
        }
        const size_t level_end = item.find(':', tag_end + 1);
        const std::string_view level =
            item.substr(tag_end + 1, level_end != std::string_view::npos ? level_end - tag_end - 1
                                                                         : std::string_view::npos);
        if (level.size() != 1 || kMatchLevels.find(level[0]) == std::string_view::npos) {
            Report(kKey, Quoted(level) + ": " + std::string(kMatchLevelHelp));
        }
        if (level_end + 1 == item.size()) {
            Report(kKey, Quoted(item) + " has an empty TEXT; leave out its colon");
        }
    }

    const LaunchArguments& arguments_;
    std::vector<Fault> faults_;
};

}  // namespace

std::vector<Fault> CheckFirstLaunch(const LaunchArguments& arguments) {
    Checker checker(arguments);
    checker.Keys();
    if (checker.Find("DUMP")) {
        checker.Report("DUMP",
                       "nothing is recorded yet; start the recording first, with " + Join(kNeeded));
        if (arguments.size() == 1) {
            return checker.Take();
        }
    }
    for (const std::string_view key : kNeeded) {
        if (!checker.Find(key)) {
            checker.Report(key, "missing; the recording cannot start without it");
        }
    }
    checker.TagsAndLevels();
    checker.Number("RQBBUFFER", 1, "KiB");
    checker.Number("POLICYMODE", 0, "the policy, 0 for Default and 1 for Server");
    checker.Triggers();
    checker.OneOf("RQBCOUNT", {"records", "memory"});
    checker.Number("RQBHISTORY", 1, "KiB", kMaxCount);
    checker.Number("POLICYROWS", 1, "rows", kMaxCount);
    checker.Number("POLICYKIB", 1, "KiB", kMaxCount);
    checker.Number("POLICYSECONDS", 1, "seconds", kMaxCount);
    checker.Form();
    return checker.Take();
}

std::vector<Fault> CheckLaterLaunch(const LaunchArguments& arguments) {
    Checker checker(arguments);
    checker.Keys();
    for (const auto& [key, value] : arguments) {
        if (key != "DUMP" && key != "DUMPFORM" && Contains(kKeys, key)) {
            checker.Report(key,
                           "cannot be changed, the recording has started; stop the service "
                           "and start it with the new value");
        }
    }
    const auto folder = checker.Find("DUMP");
    if (!folder || folder->empty()) {
        checker.Report("DUMP",
                       folder ? "names no folder" : "missing; only a dump can be asked for");
    }
    checker.Form();
    return checker.Take();
}

bool HasTrigger(const LaunchArguments& arguments, std::string_view trigger) {
    const auto modes = arguments.find("DLOGDUMPMODE");
    return modes != arguments.end() && Contains(SplitWords(modes->second, '&'), trigger);
}

std::string Quoted(std::string_view word) {
    const bool cut = word.size() > kMaxQuoted;
    size_t size = std::min(word.size(), kMaxQuoted);
    while (cut && size > 0 && (static_cast<unsigned char>(word[size]) & 0xC0) == 0x80) {
        --size;  // not in the middle of a character
    }
    std::string text = "'";
    for (const char c : word.substr(0, size)) {
        constexpr std::string_view kDigits = "0123456789ABCDEF";
        const auto byte = static_cast<unsigned char>(c);
        text += IsControl(c) ? std::string("\\x") + kDigits[byte >> 4] + kDigits[byte & 15]
                             : std::string(1, c);
    }
    return text + (cut ? "...'" : "'");
}

std::string DidYouMean(std::string_view word, const std::vector<std::string_view>& candidates) {
    std::string_view best;
    // At most two slips, and fewer in short words, which would be close to everything.
    size_t least = std::min<size_t>(3, word.size() / 2 + 1);
    for (const std::string_view candidate : word.size() <= kMaxQuoted ? candidates : Words()) {
        if (const size_t distance = Distance(word, candidate); distance < least) {
            least = distance;
            best = candidate;
        }
    }
    return best.empty() ? "" : ", did you mean " + Quoted(best) + "?";
}

std::vector<std::string_view> SplitWords(std::string_view text, char separator) {
    Words words;
    for (;;) {
        const size_t end = text.find(separator);
        words.push_back(text.substr(0, end));
        if (end == std::string_view::npos) {
            return words;
        }
        text.remove_prefix(end + 1);
    }
}

}  // namespace port
