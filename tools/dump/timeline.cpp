#include "dump/timeline.h"

#include <algorithm>
#include <array>
#include <utility>

#define XXH_INLINE_ALL
#include <xxhash.h>

#include "text/escape.h"

namespace trelvo {

void Timeline::Add(std::string name, const Opener& open, const CodeTables* tables) {
    const std::unique_ptr<Input> input = open();
    Survey survey = TakeSurvey(*input, several_);
    Part part;
    part.name = std::move(name);
    part.chain = parts_.size();
    part.run = parts_.size();
    part.fresh = survey.fresh;
    part.first_delta_ms = survey.first_delta_ms;
    part.records = survey.records;
    part.last_ms = survey.last_log_time - survey.late_ms;
    part.start_ms = part.last_ms - survey.span_ms;
    part.from_ms = part.start_ms;
    part.silence_ms = survey.silence_ms;
    part.exact = !survey.damage;
    part.latest = survey.damage && !survey.first_clock;
    part.damage = survey.damage;
    part.clock = survey.first_clock;
    part.own_clock = survey.first_clock;
    part.last_clock = survey.clocks.Last();
    if (part.start_ms >= kTimesEndMs && part.clock) {
        part.from_ms = std::max(part.from_ms, part.clock->monotonic_ms);
    }
    if (const auto written = input->WriteTime()) {
        part.boot_time_ms =
            int64_t{written->tv_sec} * 1000 + written->tv_nsec / 1000000 - survey.last_log_time;
    }
    if (survey.records > 0) {
        Place(part, std::move(survey));
    } else {
        // A dump without lines says nothing about what lies between others.
        part.boot = parts_.empty() ? 0 : parts_.back().boot;
        boots_.resize(std::max<size_t>(boots_.size(), 1));
    }
    parts_.push_back(std::move(part));
    openers_.push_back(open);
    tables_.push_back(tables);
}

void Timeline::Place(Part& part, Survey survey) {
    const std::string& id = survey.clocks.Boot();
    const auto known = std::find_if(boots_.begin(), boots_.end(), [&id](const Boot& boot) {
        return !id.empty() && boot.id == id;
    });
    // What says nothing of its machine is taken to be of that of the dump before.
    const std::string host = known != boots_.end() ? known->host
                             : id.empty()          ? last_host_
                                                   : survey.clocks.Host();
    if (last_host_.empty() && !host.empty()) {
        for (Boot& boot : boots_) {
            boot.host = host;
        }
        if (auto unnamed = last_.extract(""); !unnamed.empty()) {
            unnamed.key() = host;
            last_.insert(std::move(unnamed));
        }
    }
    last_host_ = host;
    const auto last = last_.find(host);
    if (known != boots_.end() &&
        (last == last_.end() ||
         parts_[last->second.part].boot != static_cast<size_t>(known - boots_.begin()))) {
        // Boots in turns: of what was shown of this one, nothing is kept to compare with.
        part.boot = static_cast<size_t>(known - boots_.begin());
        part.before = Break::kRestart;
    } else if (last != last_.end() && Link(part, survey, last->second)) {
        part.boot = parts_[last->second.part].boot;
    } else if (last_.empty() && !boots_.empty()) {
        part.boot = 0;  // of dumps without lines
    } else {
        part.boot = boots_.size();
        boots_.emplace_back();
    }
    Boot& boot = boots_[part.boot];
    boot.host = host;
    if (!id.empty()) {
        boot.id = id;
    }
    if (!boot.clock) {
        boot.clock = part.clock;
    }
    // What holds nothing new is nothing to go on from.
    if (part.skipped < part.records || last == last_.end()) {
        last_.insert_or_assign(host, Last{parts_.size(), std::move(survey)});
    }
}

bool Timeline::Link(Part& part, const Survey& survey, const Last& last) {
    Part& before = parts_[last.part];
    const std::string& boot = boots_[before.boot].id;
    const bool told = !boot.empty() && !survey.clocks.Boot().empty();
    if (told && boot != survey.clocks.Boot()) {
        part.before = Break::kReboot;
        return false;
    }
    const Overlap overlap = FindOverlap(last.survey, survey);
    if (overlap.records > 0) {
        // Equal records have equal times. That mends the times of a damaged dump, and tells a
        // chance likeness of two whole ones from a repetition.
        const int64_t in_part =
            part.start_ms + survey.prints[static_cast<size_t>(overlap.records - 1)].ms;
        const int64_t error = in_part - (before.start_ms + overlap.earlier_ms);
        if (error == 0 || !before.exact || !part.exact) {
            if (part.exact) {
                ShiftChain(before.chain, error, true);
            } else {
                Shift(part, -error, before.exact);
                part.chain = before.chain;
            }
            part.skipped = overlap.records;
            part.from_ms =
                part.start_ms + (overlap.records < part.records
                                     ? survey.prints[static_cast<size_t>(overlap.records)].ms
                                     : survey.span_ms);
            if (part.from_ms >= kTimesEndMs) {
                part.from_ms = std::max(part.from_ms, before.EndMs());
            }
            part.run = before.run;
            GoOn(part, before);
            return true;
        }
    }
    if (!told && !one_boot_) {
        const bool earlier_end = survey.last_log_time < last.survey.last_log_time;
        // Booted after the dump before was written, if the files' own times can be trusted.
        const bool later_boot =
            part.boot_time_ms && before.boot_time_ms &&
            *part.boot_time_ms > *before.boot_time_ms + last.survey.last_log_time;
        if (earlier_end || later_boot) {
            part.before = Break::kReboot;
            return false;
        }
    }
    if (!part.exact && overlap.records == 0) {
        // Recorded once more, and cut before there was anything new.
        if (const Overlap tail = FindTail(last.survey, survey); tail.records > 0) {
            Shift(part, before.start_ms + tail.earlier_ms - part.last_ms, before.exact);
        }
    }
    part.after = last.part;
    Settle(part);
    if (part.before != Break::kRestart) {
        GoOn(part, before);
    }
    return true;
}

void Timeline::Settle(Part& part) {
    const Part& before = parts_[*part.after];
    const int64_t most_ms = part.start_ms - part.first_delta_ms;
    if (!before.exact && !part.fresh && before.last_ms > most_ms) {
        // Had lines of it been logged later, this one would hold them.
        ShiftChain(before.chain, most_ms - before.last_ms, false);
    }
    // A damaged dump does not tell what came after it.
    const bool joins = before.exact && most_ms == before.last_ms && part.start_ms < kTimesEndMs;
    part.before = part.from_ms < before.EndMs() ? Break::kRestart
                  : part.fresh                  ? Break::kFresh
                  : joins                       ? Break::kNone
                                                : Break::kGap;
}

void Timeline::Shift(Part& part, int64_t ms, bool exact) {
    part.start_ms += ms;
    part.from_ms += ms;
    part.last_ms += ms;
    part.exact = part.exact || exact;
    part.latest = part.latest && !exact;
}

void Timeline::ShiftChain(size_t chain, int64_t ms, bool exact) {
    for (Part& part : parts_) {
        if (part.chain == chain) {
            Shift(part, ms, exact);
        }
    }
    for (Part& part : parts_) {
        if (part.after && part.chain == chain) {
            Settle(part);
        }
    }
}

void Timeline::GoOn(Part& part, const Part& before) {
    if (before.last_clock) {
        // In a gap there may have been others.
        part.clock = part.before == Break::kGap && part.clock ? part.clock : before.last_clock;
        part.last_clock = part.last_clock ? part.last_clock : before.last_clock;
    }
}

std::set<std::string> Timeline::Hosts() const {
    std::set<std::string> hosts;
    for (const Boot& boot : boots_) {
        hosts.insert(boot.host);
    }
    return hosts;
}

std::string Timeline::BootId(size_t boot) const {
    if (!boots_[boot].id.empty()) {
        return boots_[boot].id;
    }
    const auto part = std::find_if(parts_.begin(), parts_.end(),
                                   [boot](const Part& each) { return each.boot == boot; });
    const std::array<int64_t, 4> seen{part->start_ms, part->last_ms,
                                      static_cast<int64_t>(part->records), part->silence_ms};
    XXH128_canonical_t bytes;
    XXH128_canonicalFromHash(&bytes, XXH3_128bits(seen.data(), sizeof seen));
    return Hex({reinterpret_cast<const char*>(bytes.digest), sizeof bytes.digest});
}

std::optional<int64_t> Timeline::BootTime(size_t boot) const {
    // The machine may have been silent for any time before a dump, so the smallest is the best.
    std::optional<int64_t> earliest;
    for (const Part& part : parts_) {
        if (part.boot == boot && part.records > 0 && part.boot_time_ms) {
            earliest = std::min(earliest.value_or(*part.boot_time_ms), *part.boot_time_ms);
        }
    }
    return earliest;
}

int64_t Timeline::EndOf(size_t boot) const {
    int64_t end_ms = INT64_MIN;
    for (const Part& part : parts_) {
        if (part.boot == boot && part.last_clock) {
            end_ms = std::max(end_ms, part.last_clock->boot_time_ms + part.EndMs());
        }
    }
    return end_ms;
}

}  // namespace trelvo
