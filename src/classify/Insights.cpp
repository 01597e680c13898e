#include "classify/Insights.h"

#include "billing/DayPricing.h"
#include "support/L10n.h"
#include "support/LocalTime.h"
#include "support/Money.h"
#include "support/TextHash.h"

#include <algorithm>
#include <functional>
#include <string_view>
#include <unordered_map>

namespace ombrelo {

namespace {

constexpr double blockGap = 120;          // seconds between two activities of one block, at most (exclusive)
constexpr double shortInterruption = 120; // a block shorter than this between two of the same work is absorbed

// Totals keyed by something, kept in order of first appearance and sorted by
// decreasing seconds at the end.
template <typename Key, typename Total, typename Hash = std::hash<Key>, typename Equal = std::equal_to<Key>>
class Tally {
public:
    template <typename Lookup, typename Make>
    Total& at(const Lookup& key, Make make) {
        auto found = index_.find(key);
        if (found == index_.end()) {
            found = index_.emplace(Key(key), totals_.size()).first;
            totals_.push_back(make());
        }
        return totals_[found->second];
    }
    Total* find(const Key& key) {
        auto found = index_.find(key);
        return found == index_.end() ? nullptr : &totals_[found->second];
    }
    std::vector<Total> sorted() && {
        std::stable_sort(totals_.begin(), totals_.end(),
                         [](const Total& a, const Total& b) { return a.seconds > b.seconds; });
        return std::move(totals_);
    }

private:
    std::unordered_map<Key, std::size_t, Hash, Equal> index_;
    std::vector<Total> totals_;
};

class LabelTally {
public:
    void add(std::string_view label, const SharedText& bundleID, double seconds) {
        LabelTotal& total = tally_.at(label, [&] { return LabelTotal{std::string(label), bundleID, 0}; });
        if (!total.bundleID && bundleID) total.bundleID = bundleID;
        total.seconds += seconds;
    }
    std::vector<LabelTotal> sorted() && { return std::move(tally_).sorted(); }

private:
    Tally<std::string, LabelTotal, TextHash, std::equal_to<>> tally_;
};

std::string_view labelOf(const Activity& activity, std::string_view privateLabel, std::string_view idleLabel) {
    if (activity.kind == Activity::Kind::privateTime) return privateLabel;
    if (activity.kind == Activity::Kind::idle) return idleLabel;
    return activity.domain ? std::string_view(*activity.domain) : std::string_view(activity.appName);
}

bool isIdle(const Classified& item) { return item.activity.kind == Activity::Kind::idle; }

template <typename Record>  // Project or Category
std::optional<std::int64_t> idOf(const std::shared_ptr<const Record>& record) {
    return record ? std::optional(record->id) : std::nullopt;
}

const SharedText& firstNote(const std::vector<Classified>& items) {
    static const SharedText none;
    for (const Classified& item : items)
        if (item.note) return item.note;
    return none;
}

double blockSeconds(const std::vector<Classified>& items) {
    double seconds = 0;
    for (const Classified& item : items) seconds += item.activity.duration();
    return seconds;
}

} // namespace

double Summary::unassigned() const {
    for (const ProjectTotal& total : byProject)
        if (!total.project) return total.seconds;
    return 0;
}

std::vector<std::int64_t> Block::activityIDs() const {
    std::vector<std::int64_t> ids;
    ids.reserve(items.size());
    for (const Classified& item : items) ids.push_back(item.activity.id);
    return ids;
}

double Block::seconds() const { return blockSeconds(items); }

SharedText Block::note() const { return firstNote(items); }

bool Block::manual() const {
    return std::any_of(items.begin(), items.end(), [](const Classified& item) { return item.manual; });
}

std::vector<LabelTotal> Block::labels() const {
    std::string_view privateLabel = L10n::text("Privé", "Private");
    std::string_view idleLabel = L10n::text("Inactif", "Idle");
    LabelTally labels;
    for (const Classified& item : items)
        labels.add(labelOf(item.activity, privateLabel, idleLabel), item.activity.bundleID, item.activity.duration());
    return std::move(labels).sorted();
}

std::string Block::title() const {
    const Classified* longest = nullptr;
    for (const Classified& item : items)
        if (item.activity.title && !item.activity.title->empty() &&
            (!longest || item.activity.duration() > longest->activity.duration()))
            longest = &item;
    if (longest) return *longest->activity.title;
    return labels().front().label;
}

namespace Insights {

std::string_view documentName(std::string_view path) {
    while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
    auto slash = path.find_last_of('/');
    if (slash == std::string_view::npos || path.size() == 1) return path;
    return path.substr(slash + 1);
}

bool sameWork(const std::vector<Classified>& items, const Classified& next) {
    const Classified& first = items.front();
    if (isIdle(first) || isIdle(next)) return isIdle(first) && isIdle(next);
    if (idOf(first.project) != idOf(next.project) || idOf(first.category) != idOf(next.category)) return false;
    const SharedText& noted = firstNote(items);
    return !noted || !next.note || *noted == *next.note;
}

std::vector<Block> blocks(const ClassifiedList& items) {
    // Pass 1: runs of the same work with gaps under two minutes.
    std::vector<Block> runs;
    for (const Classified& item : items) {
        if (item.activity.end - item.activity.start < 1) continue;
        if (!runs.empty()) {
            Block& current = runs.back();
            if (sameWork(current.items, item) && item.activity.start - current.items.back().activity.end < blockGap) {
                current.items.push_back(item);
                continue;
            }
        }
        runs.push_back(Block{{item}});
    }

    // Pass 2: P, M, B with M short, not an absence, and B the same work as P
    // become one block.
    std::vector<Block> result;
    for (Block& incoming : runs) {
        if (result.size() >= 2) {
            Block& middle = result.back();
            Block& previous = result[result.size() - 2];
            if (middle.seconds() < shortInterruption && !middle.idle() &&
                sameWork(previous.items, incoming.items.front())) {
                auto& merged = previous.items;
                merged.insert(merged.end(), std::make_move_iterator(middle.items.begin()),
                              std::make_move_iterator(middle.items.end()));
                merged.insert(merged.end(), std::make_move_iterator(incoming.items.begin()),
                              std::make_move_iterator(incoming.items.end()));
                result.pop_back();
                continue;
            }
        }
        result.push_back(std::move(incoming));
    }
    return result;
}

} // namespace Insights

struct SummaryBuilder::Tallies {
    Tally<std::optional<std::int64_t>, ProjectTotal> projects;
    Tally<std::optional<std::int64_t>, CategoryTotal> categories;
    LabelTally labels, apps, domains, documents;
    DayPricing pricing;
    DayCursor days;
};

SummaryBuilder::SummaryBuilder() : tallies_(std::make_unique<Tallies>()) {}
SummaryBuilder::~SummaryBuilder() = default;
SummaryBuilder::SummaryBuilder(SummaryBuilder&&) noexcept = default;

void SummaryBuilder::add(const Classified& item) {
    if (isIdle(item)) return;
    std::string_view privateLabel = L10n::text("Privé", "Private");
    std::string_view idleLabel = L10n::text("Inactif", "Idle");
    Tallies& t = *tallies_;
    const Activity& activity = item.activity;
    double d = activity.duration();
    summary_.active += d;
    t.projects.at(idOf(item.project), [&] { return ProjectTotal{item.project, 0, 0}; }).seconds += d;
    if (item.project && item.project->billable) {
        summary_.billable += d;
        t.pricing.add(0, *item.project, t.days.startOf(activity.start), d);
    }
    if (item.category && item.category->isDistraction) summary_.distraction += d;
    t.categories.at(idOf(item.category), [&] { return CategoryTotal{item.category, 0}; }).seconds += d;
    t.labels.add(labelOf(activity, privateLabel, idleLabel), activity.bundleID, d);
    t.apps.add(activity.appName, activity.bundleID, d);
    if (activity.domain) t.domains.add(*activity.domain, activity.bundleID, d);
    if (activity.path && !activity.path->empty())
        t.documents.add(Insights::documentName(*activity.path), activity.bundleID, d);
}

void SummaryBuilder::add(const ClassifiedList& items) {
    for (const Classified& item : items) add(item);
}

Summary SummaryBuilder::take() && {
    Tallies& t = *tallies_;
    Summary summary = std::move(summary_);
    for (const DayPricing::Day& day : t.pricing.priced()) {
        ProjectTotal* total = t.projects.find(day.project->id);
        total->amountCents = addCents(total->amountCents, day.cents);
        summary.amountCents = addCents(summary.amountCents, day.cents);
    }
    summary.byProject = std::move(t.projects).sorted();
    summary.byCategory = std::move(t.categories).sorted();
    summary.byLabel = std::move(t.labels).sorted();
    summary.byApp = std::move(t.apps).sorted();
    summary.byDomain = std::move(t.domains).sorted();
    summary.byDocument = std::move(t.documents).sorted();
    return summary;
}

namespace Insights {

Summary summary(const ClassifiedList& items) {
    SummaryBuilder builder;
    builder.add(items);
    return std::move(builder).take();
}

std::vector<DayTotal> daily(const ClassifiedList& items, Instant from, int days) {
    std::vector<DayTotal> totals;
    std::unordered_map<Instant, std::size_t> index;
    Instant day = local::startOfDay(from);
    for (int i = 0; i < days; ++i, day = local::addDays(day, 1)) {
        index.emplace(day, totals.size());
        totals.push_back(DayTotal{day, 0, 0, 0});
    }

    DayPricing pricing;
    DayCursor cursor;
    for (const Classified& item : items) {
        if (isIdle(item)) continue;
        Instant start = cursor.startOf(item.activity.start);
        auto found = index.find(start);
        if (found == index.end()) continue;
        DayTotal& total = totals[found->second];
        double d = item.activity.duration();
        total.active += d;
        if (item.project && item.project->billable) {
            total.billable += d;
            pricing.add(0, *item.project, start, d);
        }
    }
    for (const DayPricing::Day& priced : pricing.priced()) {
        DayTotal& total = totals[index.at(priced.day)];
        total.amountCents = addCents(total.amountCents, priced.cents);
    }
    return totals;
}

DayTotal dayTotal(const ClassifiedList& items, Instant day) { return daily(items, day, 1).front(); }

} // namespace Insights
} // namespace ombrelo
