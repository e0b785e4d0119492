#include "text/time_point.h"

#include <glib.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <memory>
#include <string_view>
#include <utility>

namespace trelvo {

namespace {

using Zone = std::unique_ptr<GTimeZone, decltype(&g_time_zone_unref)>;
using Time = std::unique_ptr<GDateTime, decltype(&g_date_time_unref)>;

constexpr int64_t kSecond = 1000;
constexpr int64_t kMinute = 60 * kSecond;
constexpr int64_t kHour = 60 * kMinute;
constexpr int64_t kDay = 24 * kHour;

Zone ZoneOf(bool utc) {
    return {utc ? g_time_zone_new_utc() : g_time_zone_new_local(), g_time_zone_unref};
}

int64_t ToMs(const Time& time) {
    return g_date_time_to_unix(time.get()) * kSecond +
           g_date_time_get_microsecond(time.get()) / 1000;
}

std::optional<int64_t> UnitMs(std::string_view unit) {
    static constexpr std::array<std::pair<std::string_view, int64_t>, 15> kUnits{{
        {"", kSecond},
        {"s", kSecond},
        {"sec", kSecond},
        {"second", kSecond},
        {"seconds", kSecond},
        {"m", kMinute},
        {"min", kMinute},
        {"minute", kMinute},
        {"minutes", kMinute},
        {"h", kHour},
        {"hour", kHour},
        {"hours", kHour},
        {"d", kDay},
        {"day", kDay},
        {"days", kDay},
    }};
    const auto found = std::find_if(kUnits.begin(), kUnits.end(),
                                    [unit](const auto& entry) { return entry.first == unit; });
    return found == kUnits.end() ? std::nullopt : std::optional(found->second);
}

// NUMBER[UNIT]; the unit is seconds where there is none, and may stand behind a blank.
std::optional<int64_t> ParseDuration(std::string_view text) {
    constexpr double kMostMs = 1e15;  // 30,000 years: what is added to it does not overflow
    double number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number, std::chars_format::fixed);
    if (error != std::errc()) {
        return std::nullopt;
    }
    std::string_view unit(stop, static_cast<size_t>(end - stop));
    unit.remove_prefix(std::min(unit.find_first_not_of(' '), unit.size()));
    const auto unit_ms = UnitMs(unit);
    const double ms = number * static_cast<double>(unit_ms.value_or(0));
    if (!unit_ms || !(std::abs(ms) < kMostMs)) {
        return std::nullopt;
    }
    return std::llround(ms);
}

// Midnight of a day so many days before today.
int64_t Midnight(bool utc, int days_ago) {
    const Zone zone = ZoneOf(utc);
    const Time now(g_date_time_new_now(zone.get()), g_date_time_unref);
    const Time day(g_date_time_add_days(now.get(), -days_ago), g_date_time_unref);
    const Time midnight(g_date_time_new(zone.get(), g_date_time_get_year(day.get()),
                                        g_date_time_get_month(day.get()),
                                        g_date_time_get_day_of_month(day.get()), 0, 0, 0),
                        g_date_time_unref);
    return ToMs(midnight);
}

}  // namespace

std::optional<int64_t> ParseWallTime(const std::string& text, bool utc) {
    const Zone zone = ZoneOf(utc);
    constexpr size_t kDateSize = 10;  // 2026-11-25
    std::string iso = text;
    if (iso.size() > 2 && iso[2] == ':') {
        // Of the zone that the text names itself, if it does.
        const size_t own = std::min(iso.find_first_of("Z+-"), iso.size());
        const Zone named(g_time_zone_new_identifier(own < iso.size() ? &iso[own] : nullptr),
                         g_time_zone_unref);
        const Time now(g_date_time_new_now(own < iso.size() && named ? named.get() : zone.get()),
                       g_date_time_unref);
        const std::unique_ptr<char, decltype(&g_free)> today(
            g_date_time_format(now.get(), "%Y-%m-%d "), g_free);
        iso.insert(0, today.get());
    }
    if (iso.size() == kDateSize) {
        iso += " 00:00";
    }
    constexpr size_t kMinuteEnd = kDateSize + 6;
    if (iso.size() >= kMinuteEnd && iso[kMinuteEnd - 3] == ':' &&
        (iso.size() == kMinuteEnd || iso[kMinuteEnd] != ':')) {
        iso.insert(kMinuteEnd, ":00");
    }
    const Time time(g_date_time_new_from_iso8601(iso.c_str(), zone.get()), g_date_time_unref);
    return time ? std::optional(ToMs(time)) : std::nullopt;
}

TimePoint ParseTimePoint(const std::string& text, bool utc) {
    using Kind = TimePoint::Kind;
    constexpr std::string_view kAgo = " ago";
    if (text == "now") {
        return {g_get_real_time() / 1000, Kind::kWall};
    }
    if (text == "today" || text == "yesterday") {
        return {Midnight(utc, text == "today" ? 0 : 1), Kind::kWall};
    }
    if (text.size() > kAgo.size() && text.substr(text.size() - kAgo.size()) == kAgo) {
        const auto ago = ParseDuration(text.substr(0, text.size() - kAgo.size()));
        if (ago && *ago >= 0) {
            return {g_get_real_time() / 1000 - *ago, Kind::kWall};
        }
    } else if (const auto duration = ParseDuration(text)) {
        return {*duration, text.front() == '-' ? Kind::kFromEnd : Kind::kSinceBoot};
    } else if (const auto wall = ParseWallTime(text, utc)) {
        return {*wall, Kind::kWall};
    }
    throw FilterError("'" + text +
                      "' is not a time: expected '2026-11-25 00:54:00', 2026-11-25, 00:54, "
                      "yesterday, '10 min ago', -5m (before the end), or seconds since boot");
}

}  // namespace trelvo
