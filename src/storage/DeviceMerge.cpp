#include "storage/DeviceMerge.h"

#include <algorithm>
#include <map>
#include <set>

namespace ombrelo {

namespace {

bool singleDevice(const std::vector<Activity>& activities) {
    return std::all_of(activities.begin(), activities.end(),
                       [&](const Activity& a) { return a.device == activities.front().device; });
}

// True when `a` should win the stretch over `b` (rules 1 to 3 above).
bool outranks(const Activity& a, const Activity& b) {
    bool aActive = a.kind != Activity::Kind::idle, bActive = b.kind != Activity::Kind::idle;
    if (aActive != bActive) return aActive;
    if (a.start != b.start) return a.start > b.start;
    if (a.device != b.device) return a.device.value_or("") < b.device.value_or("");
    return a.id < b.id;
}

} // namespace

std::vector<Activity> mergeDevices(std::vector<Activity> activities) {
    if (activities.size() < 2 || singleDevice(activities)) return activities;

    // Every start and end cuts the time line into stretches covered by a fixed set of rows.
    std::map<Instant, std::vector<std::size_t>> starting, ending;
    std::set<Instant> cuts;
    for (std::size_t i = 0; i < activities.size(); ++i) {
        if (activities[i].end <= activities[i].start) continue;
        starting[activities[i].start].push_back(i);
        ending[activities[i].end].push_back(i);
        cuts.insert(activities[i].start);
        cuts.insert(activities[i].end);
    }

    std::vector<Activity> merged;
    std::map<std::size_t, std::size_t> lastPiece;  // row → index of its latest piece in `merged`
    std::set<std::size_t> covering;
    for (auto cut = cuts.begin(); cut != cuts.end(); ++cut) {
        for (std::size_t i : ending[*cut]) covering.erase(i);
        for (std::size_t i : starting[*cut]) covering.insert(i);
        auto next = std::next(cut);
        if (next == cuts.end() || covering.empty()) continue;

        std::size_t winner = *covering.begin();
        for (std::size_t i : covering)
            if (outranks(activities[i], activities[winner])) winner = i;

        for (std::size_t i : covering) {
            if (activities[i].device != activities[winner].device) continue;
            auto previous = lastPiece.find(i);
            if (previous != lastPiece.end() && merged[previous->second].end == *cut) {
                merged[previous->second].end = *next;
                continue;
            }
            Activity piece = activities[i];
            piece.start = *cut;
            piece.end = *next;
            lastPiece[i] = merged.size();
            merged.push_back(std::move(piece));
        }
    }
    std::stable_sort(merged.begin(), merged.end(), [](const Activity& a, const Activity& b) { return a.start < b.start; });
    return merged;
}

} // namespace ombrelo
