#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

// Refuses launch arguments that the service would misread in silence. Pure functions: nothing is
// opened or asked.
namespace port {

using LaunchArguments = std::map<std::string, std::string>;

// One thing that is wrong, as "<key>: <text>" for the user.
struct Fault {
    std::string key;
    std::string text;
};

// The faults of the request that starts the recording. Empty: it can be believed.
[[nodiscard]] std::vector<Fault> CheckFirstLaunch(const LaunchArguments& arguments);

// The faults of a request to a service that records already, which can only ask for a dump.
[[nodiscard]] std::vector<Fault> CheckLaterLaunch(const LaunchArguments& arguments);

// Whether the first launch asks for this trigger.
[[nodiscard]] bool HasTrigger(const LaunchArguments& arguments, std::string_view trigger);

// "'word' " between quotes, cut when long, control characters as \xNN: it may come from anybody.
[[nodiscard]] std::string Quoted(std::string_view word);

// ", did you mean 'x'?" for the candidate that is closest to `word`; empty when none is close.
[[nodiscard]] std::string DidYouMean(std::string_view word,
                                     const std::vector<std::string_view>& candidates);

// The parts between separators; adjacent separators give empty ones, and an empty text gives one.
[[nodiscard]] std::vector<std::string_view> SplitWords(std::string_view text, char separator);

}  // namespace port
