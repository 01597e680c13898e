#include "billing/DayPricing.h"

#include "support/LocalTime.h"

#include <functional>

namespace ombrelo {

Instant DayCursor::startOf(Instant t) {
    if (next_ > start_ && t >= start_ && t < next_) return start_;
    start_ = local::startOfDay(t);
    next_ = local::addDays(start_, 1);
    return start_;
}

std::size_t DayPricing::KeyHash::operator()(const Key& key) const {
    std::size_t h = std::hash<std::int64_t>{}(key.project);
    h ^= std::hash<double>{}(key.day) + 0x9e3779b97f4a7c15ULL + (h << 6) + (h >> 2);
    h ^= std::hash<int>{}(key.group) + 0x9e3779b97f4a7c15ULL + (h << 6) + (h >> 2);
    return h;
}

void DayPricing::add(int group, const Project& project, Instant day, double seconds) {
    projects_.try_emplace(project.id, project);
    seconds_[Key{group, project.id, day}] += seconds;
}

std::vector<DayPricing::Day> DayPricing::priced() const {
    std::vector<Day> days;
    days.reserve(seconds_.size());
    for (const auto& [key, seconds] : seconds_) {
        const Project& project = projects_.at(key.project);
        days.push_back(Day{key.group, &project, key.day, seconds, project.amountCents(seconds)});
    }
    return days;
}

} // namespace ombrelo
