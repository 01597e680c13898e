#include "classify/Workspace.h"

#include "storage/DeviceMerge.h"
#include "support/Fold.h"
#include "support/L10n.h"
#include "support/LocalTime.h"
#include "support/Log.h"
#include "support/Uuid.h"

#include <algorithm>

namespace ombrelo {

namespace {

bool containsASCIIFolded(const SharedText& field, std::string_view needle) {
    return field && lowerASCII(*field).find(needle) != std::string::npos;
}

// What the store's search matches: the text in one of the five fields,
// ignoring ASCII case.
bool matches(const Activity& activity, std::string_view loweredText) {
    return lowerASCII(activity.appName).find(loweredText) != std::string::npos ||
           containsASCIIFolded(activity.title, loweredText) || containsASCIIFolded(activity.domain, loweredText) ||
           containsASCIIFolded(activity.path, loweredText) || containsASCIIFolded(activity.url, loweredText);
}

std::string jsonArray(const std::vector<std::int64_t>& ids) {
    std::string text = "[";
    for (std::size_t i = 0; i < ids.size(); ++i) {
        if (i) text += ',';
        text += std::to_string(ids[i]);
    }
    return text + "]";
}

} // namespace

Workspace::Workspace(ActivityStore* store, Catalog& catalog, ProjectStore& projects, Clock& clock, DayCache dayCache)
    : store_(store), catalog_(catalog), projects_(projects), clock_(clock), caching_(dayCache),
      log_(Log::get("workspace")) {
    subscription_ = catalog_.subscribe([this] { invalidate(); });
    // The stores were loaded just now: only later commits are news.
    if (store_) {
        try {
            seenDataVersion_ = store_->database().dataVersion();
        } catch (const DatabaseError&) {
        }
    }
}

Workspace::~Workspace() { catalog_.unsubscribe(subscription_); }

ClassifiedList Workspace::items(Instant from, Instant to) {
    ClassifiedList list;
    eachDay(from, to, [&](const ClassifiedList::Run& day) { list.append(day); });
    return list;
}

void Workspace::eachDay(Instant from, Instant to, const std::function<void(const ClassifiedList::Run&)>& take) {
    if (!(to > from)) return;
    takeInOtherWrites();
    dropCacheIfInputsChanged();

    std::optional<Instant> first;
    if (demo_) {
        for (const Activity& activity : *demo_)
            first = std::min(first.value_or(activity.start), activity.start);
    } else if (store_) {
        try {
            first = store_->firstStart();
        } catch (const DatabaseError& error) {
            log_->warn("Lecture impossible : {}", error.description());
        }
    }
    if (!first) return;

    Instant today = local::startOfDay(clock_.now());
    std::optional<Generation> now = demo_ ? std::nullopt : generation();
    for (Instant day = local::startOfDay(std::max(from, *first)); day < to;) {
        Instant next = local::addDays(day, 1);
        bool wholePastDay = day >= from && next <= to && next <= today;
        ClassifiedList::Run items =
            wholePastDay && !demo_
                ? cachedDay(day, next, now)
                : std::make_shared<const std::vector<Classified>>(compute(std::max(day, from), std::min(next, to)));
        if (!items->empty()) take(items);
        day = next;
    }
}

ClassifiedList Workspace::day(Instant date) {
    Instant start = local::startOfDay(date);
    return items(start, local::addDays(start, 1));
}

std::vector<Classified> Workspace::search(std::string_view text, Instant from, Instant to) {
    std::string_view needle = trim(text);
    if (needle.empty() || !(to > from)) return {};
    takeInOtherWrites();
    std::vector<Activity> found;
    if (demo_) {
        found = demoMatches(needle, from, to);
        std::stable_sort(found.begin(), found.end(),
                         [](const Activity& a, const Activity& b) { return a.start > b.start; });
        if (found.size() > static_cast<std::size_t>(searchLimit)) found.resize(searchLimit);
    } else if (store_) {
        try {
            found = store_->search(needle, from, to, searchLimit);
        } catch (const DatabaseError& error) {
            log_->warn("Recherche impossible : {}", error.description());
        }
    }
    return catalog_.classify(std::move(found), projects_.projects());
}

std::size_t Workspace::searchCount(std::string_view text, Instant from, Instant to) {
    std::string_view needle = trim(text);
    if (needle.empty() || !(to > from)) return 0;
    if (demo_) return demoMatches(needle, from, to).size();
    if (!store_) return 0;
    try {
        return static_cast<std::size_t>(store_->searchCount(needle, from, to));
    } catch (const DatabaseError& error) {
        log_->warn("Recherche impossible : {}", error.description());
        return 0;
    }
}

std::vector<Activity> Workspace::demoMatches(std::string_view needle, Instant from, Instant to) const {
    std::string lowered = lowerASCII(needle);
    std::vector<Activity> found;
    for (const Activity& activity : *demo_)
        if (activity.kind != Activity::Kind::idle && activity.end > from && activity.start < to &&
            matches(activity, lowered))
            found.push_back(activity);
    return found;
}

bool Workspace::write(std::string_view label, const std::function<void()>& body) {
    if (!store_ || demo_) return false;
    try {
        Transaction transaction(store_->database());
        body();
        transaction.commit();
    } catch (const std::exception& error) {
        log_->error("{} : écriture impossible : {}", label, error.what());
        writeError_ = error.what();
        return false;
    }
    writeError_.reset();
    catalog_.announceChange();
    return true;
}

std::optional<std::vector<std::int64_t>> Workspace::addManual(Instant start, Instant end, std::string_view label,
                                                              std::optional<std::int64_t> projectID, Overlap overlap) {
    std::string name(trim(label));
    if (name.empty() || !(end > start)) return std::nullopt;
    std::vector<std::int64_t> ids;
    bool written = write("Temps manuel", [&] {
        ids.clear();
        if (overlap == Overlap::refuse && !countedUnder(start, end).empty())
            throw DatabaseError(std::string(L10n::text("du temps est déjà enregistré sur cette période",
                                                       "time is already recorded over this period")));
        cutOut(start, end, overlap == Overlap::replace);
        // No row spans two days: 23:00 to 01:00 is two rows.
        for (Instant from = start; from < end;) {
            Activity activity;
            activity.kind = Activity::Kind::manual;
            activity.start = from;
            activity.end = std::min(end, local::addDays(local::startOfDay(from), 1));
            activity.appName = name;
            ids.push_back(store_->insert(activity));
            from = activity.end;
        }
        catalog_.writeAssignments(ids, projectID, std::nullopt, source::manual);
    });
    return written ? std::optional(ids) : std::nullopt;
}

std::vector<Activity> Workspace::countedUnder(Instant start, Instant end) {
    std::vector<Activity> counted;
    if (!store_ || demo_) return counted;
    for (Activity& activity : recordedHere(start, end))
        if (activity.kind != Activity::Kind::idle) counted.push_back(std::move(activity));
    return counted;
}

std::vector<Activity> Workspace::recordedHere(Instant start, Instant end) {
    // Other machines' rows meet this one's in the device merge, not here.
    std::optional<std::string> here;
    Statement device = store_->database().prepare("SELECT value FROM sync_meta WHERE key = 'device'");
    if (device.step()) here = device.text(0);
    std::vector<Activity> rows = store_->activities(start, end);
    std::erase_if(rows, [&](const Activity& row) { return row.device && here && row.device != here; });
    return rows;
}

void Workspace::cutOut(Instant start, Instant end, bool countedTimeToo) {
    Database& db = store_->database();
    for (const Activity& row : recordedHere(start, end)) {
        if (row.kind != Activity::Kind::idle && !countedTimeToo) continue;
        if (db.queryInt("SELECT COUNT(*) FROM billing WHERE activity_id = ? AND status IN ('billed', 'paid')",
                        {row.id})
                .value_or(0) > 0)
            throw DatabaseError(std::string(L10n::text("du temps facturé ou payé ne peut pas être remplacé (activité ",
                                                       "billed or paid time cannot be replaced (activity ")) +
                                std::to_string(row.id) + ")");
        bool keepsHead = row.start < start, keepsTail = row.end > end;
        if (keepsHead && keepsTail) splitRow(row, end);
        if (keepsHead) store_->updateEnd(row.id, start);
        else if (keepsTail) store_->updateStart(row.id, end);
        else store_->remove(row.id);
    }
}

std::int64_t Workspace::splitRow(const Activity& row, Instant at) {
    Database& db = store_->database();
    // The tail becomes its own row, classified and marked as the whole was.
    Activity tail = row;
    tail.start = at;
    std::int64_t tailID = store_->insert(tail);
    db.run("INSERT INTO assignment (activity_id, project_id, category_id, source, note) "
           "SELECT ?, project_id, category_id, source, note FROM assignment WHERE activity_id = ?",
           {tailID, row.id});
    db.run("INSERT INTO billing (activity_id, status, invoice, at) "
           "SELECT ?, status, invoice, at FROM billing WHERE activity_id = ?",
           {tailID, row.id});
    store_->updateEnd(row.id, at);
    return tailID;
}

std::optional<Workspace::Split> Workspace::splitAt(const std::vector<std::int64_t>& ids, Instant at) {
    Split split;
    bool written = store_ && !demo_ && write("Découpe", [&] {
        split = {};
        for (std::int64_t id : ids) {
            std::optional<Activity> row = store_->activity(id);
            if (!row) continue;
            if (row->end <= at) split.before.push_back(id);
            else if (row->start >= at) split.after.push_back(id);
            else {
                split.before.push_back(id);
                split.after.push_back(splitRow(*row, at));
            }
        }
    });
    return written ? std::optional(split) : std::nullopt;
}

std::optional<std::size_t> Workspace::qualifyIdle(const std::vector<std::int64_t>& ids, std::string_view label,
                                                  std::optional<std::int64_t> projectID) {
    std::string name(trim(label));
    if (name.empty()) return std::nullopt;
    std::vector<std::int64_t> qualified;
    bool written = write("Absence", [&] {
        qualified.clear();
        Statement update = store_->database().prepare(
            "UPDATE activity SET kind = 'manual', app_name = ? "
            "WHERE kind = 'idle' AND id IN (SELECT value FROM json_each(?)) RETURNING id",
            {name, jsonArray(ids)});
        while (update.step()) qualified.push_back(update.int64(0));
        if (!qualified.empty()) catalog_.writeAssignments(qualified, projectID, std::nullopt, source::manual);
    });
    return written ? std::optional(qualified.size()) : std::nullopt;
}

void Workspace::setDemo(std::optional<std::vector<Activity>> activities) {
    demo_ = std::move(activities);
    if (demo_)
        std::stable_sort(demo_->begin(), demo_->end(),
                         [](const Activity& a, const Activity& b) { return a.start < b.start; });
}

void Workspace::invalidate() { dayCache_.clear(); }

std::vector<Classified> Workspace::compute(Instant from, Instant to, std::string* fingerprint) {
    std::vector<Activity> activities = read(from, to, fingerprint);
    for (Activity& activity : activities) {
        activity.start = std::max(activity.start, from);
        activity.end = std::min(activity.end, to);
    }
    return catalog_.classify(std::move(activities), projects_.projects());
}

std::vector<Activity> Workspace::read(Instant from, Instant to, std::string* fingerprint) {
    std::vector<Activity> activities;
    if (demo_) {
        for (const Activity& activity : *demo_)
            if (activity.end > from && activity.start < to) activities.push_back(activity);
        return activities;
    }
    if (!store_) return activities;
    try {
        activities = store_->activities(from, to);
    } catch (const DatabaseError& error) {
        log_->warn("Lecture impossible : {}", error.description());
        if (fingerprint) *fingerprint = randomUUID();  // matches nothing: read again next time
        return {};
    }
    if (fingerprint) *fingerprint = ActivityStore::fingerprint(activities);
    if (store_->severalDevices()) activities = mergeDevices(std::move(activities));
    return activities;
}

ClassifiedList::Run Workspace::cachedDay(Instant day, Instant next, const std::optional<Generation>& now) {
    if (caching_ == DayCache::none) return std::make_shared<const std::vector<Classified>>(compute(day, next));
    auto cached = dayCache_.find(day);
    if (cached != dayCache_.end()) {
        if (now && cached->second.checkedAt == now) return cached->second.items;
        if (cached->second.fingerprint == fingerprint(day, next)) {
            cached->second.checkedAt = now;
            return cached->second.items;
        }
    }
    ++daysComputed_;
    // The fingerprint is the rows' that were classified, and the generation
    // was read before them: a change since makes the next read check again.
    std::string print;
    auto items = std::make_shared<const std::vector<Classified>>(compute(day, next, &print));
    dayCache_[day] = CachedDay{std::move(print), now, items};
    return items;
}

std::optional<Workspace::Generation> Workspace::generation() {
    try {
        Database& db = store_->database();
        auto version = db.queryInt("PRAGMA data_version");
        auto changes = db.queryInt("SELECT total_changes()");
        if (!version || !changes) return std::nullopt;
        return Generation{*version, *changes};
    } catch (const DatabaseError& error) {
        log_->warn("Lecture impossible : {}", error.description());
        return std::nullopt;
    }
}

std::string Workspace::fingerprint(Instant from, Instant to) {
    try {
        return store_->fingerprint(from, to);
    } catch (const DatabaseError& error) {
        log_->warn("Empreinte impossible : {}", error.description());
        return randomUUID();  // never matches, so the day is recomputed
    }
}

void Workspace::takeInOtherWrites() {
    if (!store_ || demo_) return;
    std::optional<std::int64_t> version;
    try {
        version = store_->database().dataVersion();
    } catch (const DatabaseError& error) {
        log_->warn("Lecture impossible : {}", error.description());
        return;
    }
    if (version == seenDataVersion_) return;
    seenDataVersion_ = version;
    catalog_.reload();
    projects_.reload();
    invalidate();
}

void Workspace::dropCacheIfInputsChanged() {
    if (cachedWith_.categories == catalog_.categories() && cachedWith_.rules == catalog_.rules() &&
        cachedWith_.projects == projects_.projects())
        return;
    invalidate();
    cachedWith_ = Inputs{catalog_.categories(), catalog_.rules(), projects_.projects()};
}

} // namespace ombrelo
