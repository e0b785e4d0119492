#include "MatchTrigger.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "CTREventManager.h"
#include "Status.h"

namespace {

constexpr std::string_view kLevels = "VDIWEF";

}  // namespace

MatchTrigger& MatchTrigger::Instance() {
    static auto* const instance = new MatchTrigger();  // used until the process is gone
    return *instance;
}

MatchTrigger::Item MatchTrigger::ReadItem(std::string_view text) {
    const size_t level = text.find(':');
    if (level == std::string_view::npos || level == 0 || level + 1 == text.size() ||
        kLevels.find(text[level + 1]) == std::string_view::npos ||
        (level + 2 != text.size() && text[level + 2] != ':')) {
        throw std::invalid_argument(std::string(text));
    }
    const std::string_view tag = text.substr(0, level);
    const std::string_view wanted = text.substr(std::min(level + 3, text.size()));
    return {std::string(tag == "*" ? "" : tag), Rank(text[level + 1]), std::string(wanted)};
}

void MatchTrigger::Enable(const Settings& settings) {
    std::vector<Item> items;
    std::string_view rest = settings.items;
    for (;;) {
        const size_t end = rest.find('&');
        items.push_back(ReadItem(rest.substr(0, end)));
        if (end == std::string_view::npos) {
            break;
        }
        rest.remove_prefix(end + 1);
    }
    items_ = std::move(items);
    delay_ = settings.delay;
    rest_ = settings.rest;
}

bool MatchTrigger::Matches(std::string_view tag, int rank, std::string_view message) const {
    return std::any_of(items_.begin(), items_.end(), [&](const Item& item) {
        return rank >= item.rank && (item.tag.empty() || item.tag == tag) &&
               message.find(item.text) != std::string_view::npos;
    });
}

void MatchTrigger::Ask() {
    const int64_t now = g_get_monotonic_time();
    if (now < next_) {
        status::MatchSuppressed();
        return;
    }
    next_ = now + static_cast<int64_t>(std::max(rest_, delay_)) * G_USEC_PER_SEC;
    g_timeout_add(delay_ * 1000, OnDelayOver, nullptr);
}

gboolean MatchTrigger::OnDelayOver(gpointer /*self*/) {
    CTREventManager::GetInstance()->RequestDumpOnMatch();
    return G_SOURCE_REMOVE;
}
