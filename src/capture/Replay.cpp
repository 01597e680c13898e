#include "capture/Replay.h"

#include "capture/ActivityTracker.h"
#include "capture/PrivacyRules.h"
#include "capture/ScriptedDesktop.h"
#include "storage/ActivityStore.h"
#include "support/Fold.h"
#include "support/L10n.h"
#include "support/LocalTime.h"
#include "support/Preferences.h"
#include "support/Settings.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fmt/format.h>
#include <fstream>
#include <nlohmann/json.hpp>
#include <system_error>

namespace ombrelo {

namespace fs = std::filesystem;
using nlohmann::json;

// ---- Errors ------------------------------------------------------------------------

namespace {

std::string describe(ReplayError::Problem problem, const std::string& detail) {
    using P = ReplayError::Problem;
    auto text = [](std::string_view french, std::string_view english) { return std::string(L10n::text(french, english)); };
    switch (problem) {
    case P::unreadable: return text("impossible de lire le fichier : ", "cannot read the file: ") + detail;
    case P::empty: return text("le fichier ne contient aucun événement", "the file holds no event");
    case P::notJSON: return text("JSON invalide (caractère ", "invalid JSON (character ") + detail + ")";
    case P::notObject: return text("un objet JSON est attendu", "a JSON object is expected");
    case P::missingTime: return text("« t » manquant", "\"t\" is missing");
    case P::badTime:
        return text("« t » doit être une heure locale AAAA-MM-JJTHH:MM:SS ou un nombre de secondes depuis 1970",
                    "\"t\" must be a local time YYYY-MM-DDTHH:MM:SS or a number of seconds since 1970");
    case P::outOfOrder:
        return text("heure antérieure à celle de l'événement précédent (", "time earlier than the previous event's (") +
               detail + ")";
    case P::noEvent:
        return text("aucun événement", "no event") +
               " (front, title, site, away, back, sleep, wake, lock, unlock, awake, pause, resume, quit)";
    case P::severalEvents: return text("un seul événement par ligne (", "one event per line (") + detail + ")";
    case P::unknownKey: return text("clé inconnue « ", "unknown key \"") + detail + text(" »", "\"");
    case P::badValue: return text("valeur invalide pour ", "invalid value for ") + detail;
    case P::afterQuit: return text("événement après « quit »", "event after \"quit\"");
    }
    return detail;
}

std::string message(int line, ReplayError::Problem problem, const std::string& detail) {
    std::string text = describe(problem, detail);
    if (line <= 0) return text;
    return L10n::french() ? fmt::format("Ligne {} : {}", line, text) : fmt::format("Line {}: {}", line, text);
}

} // namespace

ReplayError::ReplayError(int atLine, Problem what, std::string about)
    : std::runtime_error(message(atLine, what, about)), line(atLine), problem(what), detail(std::move(about)) {}

// ---- Reading a session -------------------------------------------------------------

namespace {

using Problem = ReplayError::Problem;

constexpr std::string_view eventKeys[] = {"front", "title", "site",  "away",  "back",   "sleep", "wake",
                                          "lock",  "unlock", "awake", "pause", "resume", "quit"};

// A value's shape, checked; the messages name the key and what it should be.
class LineReader {
public:
    explicit LineReader(int line) : line_(line) {}

    [[noreturn]] void bad(const std::string& key, std::string_view french, std::string_view english) const {
        throw ReplayError(line_, Problem::badValue,
                          fmt::format("{} ({} {})", quoted(key), L10n::text("attendu :", "expected:"),
                                      L10n::text(french, english)));
    }

    static std::string quoted(const std::string& key) {
        return L10n::french() ? "« " + key + " »" : "\"" + key + "\"";
    }

    // A string, or absent for null and a missing key.
    std::optional<std::string> optionalText(const json& object, const char* key, const std::string& where) const {
        auto found = object.find(key);
        if (found == object.end() || found->is_null()) return std::nullopt;
        if (!found->is_string()) bad(where + "." + key, "un texte ou null", "a text or null");
        return found->get<std::string>();
    }

    void onlyKeys(const json& object, std::initializer_list<std::string_view> allowed, const std::string& where) const {
        for (const auto& item : object.items()) {
            if (std::find(allowed.begin(), allowed.end(), item.key()) == allowed.end())
                throw ReplayError(line_, Problem::unknownKey, where + "." + item.key());
        }
    }

    void flag(const json& value, const std::string& key) const {
        if (!(value.is_boolean() && value.get<bool>())) bad(key, "true", "true");
    }

    Instant time(const json& value) const {
        if (value.is_number()) {
            double seconds = value.get<double>();
            if (std::isfinite(seconds) && seconds >= 0) return seconds;
        } else if (value.is_string()) {
            if (auto t = local::parseDateTime(value.get<std::string>())) return *t;
        }
        throw ReplayError(line_, Problem::badTime);
    }

    ReplayEvent::Kind event(const std::string& key, const json& value) const {
        if (key == "front") {
            if (value.is_null()) return ReplayEvent::NothingInFront{};
            return front(value);
        }
        if (key == "title") {
            if (value.is_null()) return ReplayEvent::Title{};
            if (!value.is_string()) bad(key, "un texte ou null", "a text or null");
            return ReplayEvent::Title{value.get<std::string>()};
        }
        if (key == "site") {
            if (!value.is_object()) bad(key, "{\"domain\": …, \"url\": …}", "{\"domain\": …, \"url\": …}");
            onlyKeys(value, {"domain", "url"}, key);
            return ReplayEvent::Site{{optionalText(value, "domain", key), optionalText(value, "url", key)}};
        }
        if (key == "awake") return awake(value);
        if (key == "pause") {
            if (value.is_null()) return ReplayEvent::Pause{};
            if (value.is_number() && std::isfinite(value.get<double>()) && value.get<double>() > 0)
                return ReplayEvent::Pause{value.get<double>()};
            bad(key, "un nombre de minutes positif ou null", "a positive number of minutes or null");
        }
        flag(value, key);
        if (key == "away") return ReplayEvent::Away{};
        if (key == "back") return ReplayEvent::Back{};
        if (key == "sleep") return ReplayEvent::Sleep{};
        if (key == "wake") return ReplayEvent::Wake{};
        if (key == "lock") return ReplayEvent::Lock{};
        if (key == "unlock") return ReplayEvent::Unlock{};
        if (key == "resume") return ReplayEvent::Resume{};
        return ReplayEvent::Quit{};
    }

private:
    ReplayEvent::Front front(const json& value) const {
        if (!value.is_object()) bad("front", "{\"name\": …} ou null", "{\"name\": …} or null");
        onlyKeys(value, {"id", "name", "title", "path", "domain", "url"}, "front");
        ReplayEvent::Front event;
        std::optional<std::string> name = optionalText(value, "name", "front");
        if (!name || trim(*name).empty()) bad("front.name", "un nom non vide", "a non-empty name");
        event.app.name = *name;
        event.app.id = optionalText(value, "id", "front").value_or("");
        event.title = optionalText(value, "title", "front");
        event.path = optionalText(value, "path", "front");
        event.domain = optionalText(value, "domain", "front");
        event.url = optionalText(value, "url", "front");
        return event;
    }

    ReplayEvent::Awake awake(const json& value) const {
        ReplayEvent::Awake event;
        if (!value.is_array()) bad("awake", "une liste d'identifiants", "a list of application ids");
        for (const json& id : value) {
            if (!id.is_string()) bad("awake", "une liste d'identifiants", "a list of application ids");
            event.holders.insert(id.get<std::string>());
        }
        return event;
    }

    int line_;
};

ReplayEvent parseLine(const std::string& text, int line) {
    json value;
    try {
        value = json::parse(text);
    } catch (const json::parse_error& error) {
        throw ReplayError(line, Problem::notJSON, std::to_string(error.byte));
    }
    if (!value.is_object()) throw ReplayError(line, Problem::notObject);

    LineReader reader(line);
    ReplayEvent event;
    event.line = line;
    auto t = value.find("t");
    if (t == value.end()) throw ReplayError(line, Problem::missingTime);
    event.t = reader.time(*t);

    std::vector<std::string> keys;
    for (const auto& item : value.items()) {
        if (item.key() == "t") continue;
        if (std::find(std::begin(eventKeys), std::end(eventKeys), item.key()) == std::end(eventKeys))
            throw ReplayError(line, Problem::unknownKey, item.key());
        keys.push_back(item.key());
    }
    if (keys.empty()) throw ReplayError(line, Problem::noEvent);
    if (keys.size() > 1) throw ReplayError(line, Problem::severalEvents, fmt::format("{}", fmt::join(keys, ", ")));
    event.kind = reader.event(keys.front(), value[keys.front()]);
    return event;
}

} // namespace

std::vector<ReplayEvent> Replay::parse(std::istream& in) {
    std::vector<ReplayEvent> events;
    std::string text;
    int line = 0;
    while (std::getline(in, text)) {
        ++line;
        if (line == 1 && text.starts_with("\xEF\xBB\xBF")) text.erase(0, 3);
        if (trim(text).empty()) continue;
        if (!events.empty() && std::holds_alternative<ReplayEvent::Quit>(events.back().kind))
            throw ReplayError(line, Problem::afterQuit);
        ReplayEvent event = parseLine(text, line);
        if (!events.empty() && event.t < events.back().t)
            throw ReplayError(line, Problem::outOfOrder, local::formatDateTime(events.back().t));
        events.push_back(std::move(event));
    }
    if (in.bad()) throw ReplayError(0, Problem::unreadable, std::string(std::strerror(errno)));
    if (events.empty()) throw ReplayError(0, Problem::empty);
    return events;
}

std::vector<ReplayEvent> Replay::read(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) throw ReplayError(0, Problem::unreadable, file.string() + " (" + std::strerror(errno) + ")");
    return parse(in);
}

// ---- Running a session ----------------------------------------------------------------

namespace {

// The user's settings copied into a private folder, without their pause; removed
// with the folder at the end.
class PrivateSettings {
public:
    explicit PrivateSettings(const fs::path& original) {
        std::string pattern = (fs::temp_directory_path() / "ombrelo-replay-XXXXXX").string();
        if (!::mkdtemp(pattern.data())) throw std::system_error(errno, std::generic_category(), "mkdtemp");
        folder_ = pattern;
        fs::path copy = folder_ / "settings.json";
        std::error_code missing;
        if (fs::exists(original, missing)) fs::copy_file(original, copy);
        // Nothing else knows the copy: no need to look for other writers at every read.
        preferences_ = std::make_unique<Preferences>(copy, Preferences::Writers::thisOnly);
        preferences_->remove(settings::pausedUntil);
    }
    ~PrivateSettings() {
        preferences_.reset();
        std::error_code ignored;
        fs::remove_all(folder_, ignored);
    }
    PrivateSettings(const PrivateSettings&) = delete;
    PrivateSettings& operator=(const PrivateSettings&) = delete;

    Preferences& preferences() { return *preferences_; }

private:
    fs::path folder_;
    std::unique_ptr<Preferences> preferences_;
};

// Applies one event to the scripted desktop or, for the user's own actions, to
// the tracker.
struct Apply {
    ScriptedDesktop& desktop;
    ActivityTracker& tracker;
    const Clock& clock;

    void operator()(const ReplayEvent::Front& front) const {
        std::optional<PageContext> page;
        if (front.domain || front.url) page = PageContext{front.domain, front.url};
        desktop.bringToFront({front.app, front.title, front.path, page});
    }
    void operator()(const ReplayEvent::NothingInFront&) const { desktop.clearFront(); }
    void operator()(const ReplayEvent::Title& title) const { desktop.setTitle(title.title); }
    void operator()(const ReplayEvent::Site& site) const { desktop.setPage(site.page); }
    void operator()(const ReplayEvent::Away&) const { desktop.inputStopped(clock.now()); }
    void operator()(const ReplayEvent::Back&) const { desktop.inputResumed(); }
    void operator()(const ReplayEvent::Sleep&) const { desktop.notifySuspend(reason::sleep); }
    void operator()(const ReplayEvent::Wake&) const { desktop.notifyResume(reason::wake); }
    void operator()(const ReplayEvent::Lock&) const { desktop.notifySuspend(reason::locked); }
    void operator()(const ReplayEvent::Unlock&) const { desktop.notifyResume(reason::unlocked); }
    void operator()(const ReplayEvent::Awake& awake) const { desktop.setDisplayAwake(awake.holders); }
    void operator()(const ReplayEvent::Pause& pause) const {
        tracker.pause(pause.minutes ? clock.now() + *pause.minutes * 60 : ActivityTracker::indefinitely);
    }
    void operator()(const ReplayEvent::Resume&) const { tracker.resumeTracking(); }
    void operator()(const ReplayEvent::Quit&) const {}  // the session loop stops there
};

// Drives the tracker through the events, sampling every 5 s from the first
// event; returns the instant the session ends.
Instant drive(const std::vector<ReplayEvent>& events, ActivityTracker& tracker, ScriptedDesktop& desktop,
              ManualClock& clock) {
    const Instant origin = events.front().t;
    const double interval = tracker.sampleInterval();
    Apply apply{desktop, tracker, clock};
    std::size_t next = 0;
    bool quit = false;
    // Applies the events of instant `t` in file order.
    auto applyAt = [&](Instant t) {
        clock.set(t);
        for (; next < events.size() && events[next].t == t; ++next) {
            std::visit(apply, events[next].kind);
            quit = quit || std::holds_alternative<ReplayEvent::Quit>(events[next].kind);
        }
    };
    std::int64_t samples = 1;  // the next sample is origin + interval × samples
    auto sampleTime = [&] { return origin + interval * static_cast<double>(samples); };
    // The first sample at or after `t`.
    auto firstSampleFrom = [&](Instant t) {
        auto k = std::max(samples, static_cast<std::int64_t>(std::floor((t - origin) / interval)));
        while (origin + interval * static_cast<double>(k) < t) ++k;
        return k;
    };

    applyAt(origin);
    tracker.start();
    // The first sample after an event sees what the event changed without
    // telling the tracker (a title, a page, input coming back): never skipped.
    bool eventSinceSample = true;
    auto sample = [&] {
        tracker.tick();
        ++samples;
        eventSinceSample = false;
    };
    while (!quit && next < events.size()) {
        Instant t = events[next].t;
        while (sampleTime() < t) {
            // Until the tracker's next change, a sample would only move the
            // current activity's end, which the next event or sample writes anyway.
            Instant change = tracker.nextChange();
            if (!eventSinceSample && change > sampleTime()) samples = firstSampleFrom(std::min(change, t));
            if (sampleTime() >= t) break;
            clock.set(sampleTime());
            sample();
        }
        applyAt(t);
        eventSinceSample = true;
        if (!quit && sampleTime() == t) sample();
    }
    return clock.now();
}

} // namespace

Replay::Outcome Replay::run(const std::vector<ReplayEvent>& events, ActivityStore& store, const Preferences& settings,
                            const Configure& configure, const Written& written) {
    if (events.empty()) throw ReplayError(0, Problem::empty);
    PrivateSettings privateSettings(settings.path());
    Preferences& preferences = privateSettings.preferences();

    ManualClock clock(events.front().t);
    PrivacyRules privacy(preferences);
    ScriptedDesktop desktop(clock, privacy);
    ActivityBuffer buffer;
    ActivityTracker tracker(buffer, desktop, clock, preferences);
    if (configure) configure(tracker, preferences, clock);

    Outcome outcome;
    outcome.from = events.front().t;
    outcome.to = drive(events, tracker, desktop, clock);
    tracker.close(outcome.to);

    Transaction transaction(store.database());
    std::vector<ActivityBuffer::Written> rows = buffer.writeTo(store);
    if (written) written(rows);
    transaction.commit();
    outcome.written = static_cast<std::int64_t>(rows.size());
    return outcome;
}

} // namespace ombrelo
