// The tracker can die at any instant: killed at logout, by the OOM killer, by a
// user's kill -9. Whatever it was writing, the file must stay sound,
// keep every sample it had reported and everything recorded before, and its rows
// must still obey the table's invariants.
#include "capture/ActivityTracker.h"
#include "capture/PrivacyRules.h"
#include "capture/ScriptedDesktop.h"
#include "storage/ActivityStore.h"
#include "support/LocalTime.h"
#include "support/Preferences.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <map>
#include <poll.h>
#include <random>
#include <signal.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace ombrelo {
namespace {

namespace fs = std::filesystem;
using testing::ScopedTimeZone;
using testing::TempDir;

constexpr int rounds = 60;
constexpr double interval = 5.0;  // the tracker's sampling interval, checked in the child
constexpr double slack = 1e-3;    // the clock's sums of fractions are not exact

std::uint32_t seedOf(int round) { return 0x9e3779b9u * static_cast<std::uint32_t>(round + 1) ^ 0x5bd1e995u; }

ScriptedWindow window(const char* id, const char* name, const char* title,
                      std::optional<PageContext> page = std::nullopt) {
    return {{id, name, std::nullopt}, std::string(title), std::nullopt, std::move(page)};
}

void writeLine(int out, const std::string& line) {
    // One write of less than PIPE_BUF: the parent never sees half a line.
    if (::write(out, line.data(), line.size()) != static_cast<ssize_t>(line.size())) ::_exit(4);
}

// The tracker's process: records a scripted desktop as fast as it can, telling
// the parent the clock after each sample, until it is killed.
[[noreturn]] void record(const fs::path& dir, Instant start, std::uint32_t seed, int out) {
    try {
        Database db(dir / "ombrelo.sqlite");
        ActivityStore store(db);
        Preferences preferences(dir / "settings.json");
        PrivacyRules privacy(preferences);
        ManualClock clock(start);
        ScriptedDesktop desktop(clock, privacy);
        ActivityTracker tracker(&store, desktop, clock, preferences);
        if (tracker.sampleInterval() != interval) {
            std::fprintf(stderr, "the tracker samples every %g s, not %g s\n", tracker.sampleInterval(), interval);
            std::fflush(stderr);
            ::_exit(5);
        }

        std::mt19937 random(seed);
        const std::vector<ScriptedWindow> windows = {
            window("code", "Code", "main.cpp - site"),
            window("org.gnome.terminal", "Terminal", "marie@poste: ~/site"),
            window("firefox", "Firefox", "Devis", PageContext{"dupont.fr", "https://dupont.fr/devis"}),
            window("thunderbird", "Thunderbird", "Boîte de réception"),
            window("org.gnome.texteditor", "Text Editor", "secret notes"),  // private by the settings
        };
        const std::vector<const char*> titles = {"main.cpp - site", "README.md - site", "Secret plan", "Facture 12",
                                                 "Boîte de réception (1)"};
        auto pick = [&](std::size_t size) { return static_cast<std::size_t>(random() % size); };

        desktop.bringToFront(windows[pick(windows.size())]);
        tracker.start();
        bool away = false;
        std::uniform_real_distribution<double> within(0, interval);
        for (;;) {
            // At most one thing happens between two samples, at a random instant.
            double first = within(random);
            clock.advance(first);
            switch (random() % 20) {
            case 0:
            case 1:
                desktop.bringToFront(windows[pick(windows.size())]);
                away = false;
                break;
            case 2: desktop.setTitle(std::string(titles[pick(titles.size())])); break;
            case 3: desktop.setPage({"dupont.fr", "https://dupont.fr/page/" + std::to_string(random() % 10)}); break;
            case 4:
                if (away) desktop.inputResumed();
                else desktop.inputStopped(clock.now());
                away = !away;
                break;
            default: break;
            }
            clock.advance(interval - first);
            tracker.tick();
            char line[64];
            int size = std::snprintf(line, sizeof line, "%.17g\n", clock.now());
            writeLine(out, std::string(line, static_cast<std::size_t>(size)));
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "tracker process failed: %s\n", error.what());
    }
    std::fflush(stderr);
    ::_exit(3);
}

// The recording process of one round; killed and reaped on every way out.
class Recorder {
public:
    Recorder(const fs::path& dir, Instant start, std::uint32_t seed, const fs::path& errors) {
        int fds[2];
        if (::pipe(fds) != 0) throw std::runtime_error("pipe failed");
        pid_ = ::fork();
        if (pid_ == 0) {
            ::close(fds[0]);
            ::setpgid(0, 0);
            int err = ::open(errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            if (err < 0 || ::dup2(err, 2) < 0) ::_exit(6);
            record(dir, start, seed, fds[1]);
        }
        ::close(fds[1]);
        in_ = fds[0];
        if (pid_ < 0) {
            ::close(in_);
            throw std::runtime_error("fork failed");
        }
        ::setpgid(pid_, pid_);  // either side may get there first
    }
    ~Recorder() {
        kill();
        ::close(in_);
    }
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    // Reads until `count` more samples were reported; false when the pipe
    // closed or stayed silent for seconds (the child died or hangs).
    bool readSamples(int count) {
        while (static_cast<int>(samples_.size()) < count) {
            pollfd ready{in_, POLLIN, 0};
            if (::poll(&ready, 1, 10'000) <= 0 || !readSome()) return false;
        }
        return true;
    }

    // Kills the child and reaps it; returns its wait status.
    int kill() {
        if (pid_ <= 0) return status_;
        ::kill(-pid_, SIGKILL);
        ::kill(pid_, SIGKILL);
        while (::waitpid(pid_, &status_, 0) < 0 && errno == EINTR) {
        }
        pid_ = -1;
        return status_;
    }

    // After the kill: takes what the child wrote and the parent had not read yet.
    void drain() {
        while (readSome()) {
        }
    }

    const std::vector<Instant>& samples() const { return samples_; }
    bool partialLine() const { return !pending_.empty(); }

private:
    bool readSome() {
        char buffer[4096];
        ssize_t got;
        while ((got = ::read(in_, buffer, sizeof buffer)) < 0 && errno == EINTR) {
        }
        if (got <= 0) return false;
        pending_.append(buffer, static_cast<std::size_t>(got));
        for (std::size_t end; (end = pending_.find('\n')) != std::string::npos; pending_.erase(0, end + 1))
            samples_.push_back(std::stod(pending_.substr(0, end)));
        return true;
    }

    pid_t pid_ = -1;
    int in_ = -1;
    int status_ = 0;
    std::string pending_;
    std::vector<Instant> samples_;
};

struct Row {
    Instant start, end;
    std::string appName, kind;
    bool operator==(const Row&) const = default;
};

std::string describe(std::int64_t id, const Row& row) {
    return "id " + std::to_string(id) + " [" + local::formatDateTime(row.start) + " → " +
           local::formatDateTime(row.end) + "] " + row.appName + " (" + row.kind + ") " + std::to_string(row.start) +
           " → " + std::to_string(row.end);
}

// Opening as the program does at start: the migrations' check, WAL recovery.
std::map<std::int64_t, Row> openAndRead(const fs::path& file) {
    Database db(file);
    std::map<std::int64_t, Row> rows;
    Statement statement = db.prepare("SELECT id, start, end, app_name, kind FROM activity");
    while (statement.step())
        rows.emplace(statement.int64(0),
                     Row{statement.real(1), statement.real(2), statement.text(3).value_or(""),
                         statement.text(4).value_or("")});
    return rows;
}

TEST(Crash, TrackerKilledAtRandomMomentsLosesNothingReportedAndKeepsTheFileSound) {
    ScopedTimeZone zone{"Europe/Paris"};
    TempDir dir;
    const fs::path file = dir / "ombrelo.sqlite";
    // A short absence threshold, so that idle rows come and go within a round.
    testing::writeFile(dir / "settings.json", R"({"idleSeconds": 60, "privateTitleWords": ["secret"]})");

    // Just before the change to summer time (02:00 becomes 03:00); later rounds
    // cross midnights.
    Instant next = local::make(2025, 3, 30, 1, 20);
    std::map<std::int64_t, Row> before;

    for (int round = 0; round < rounds; ++round) {
        const std::uint32_t seed = seedOf(round);
        SCOPED_TRACE("round " + std::to_string(round) + ", seed " + std::to_string(seed));
        std::mt19937 random(seed ^ 0xa5a5a5a5u);
        const Instant start = next;
        const int wanted = static_cast<int>(random() % 120);
        const auto delay = std::chrono::microseconds(random() % 3000);
        const fs::path errors = dir / ("tracker-" + std::to_string(round) + ".err");

        Recorder recorder(dir.path(), start, seed, errors);
        bool alive = recorder.readSamples(wanted);
        if (alive) std::this_thread::sleep_for(delay);  // lands anywhere in a sample's writes
        int status = recorder.kill();
        ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL)
            << "the tracker ended by itself (status " << status << "):\n"
            << testing::readFile(errors);
        ASSERT_TRUE(alive) << "the tracker stopped reporting samples:\n" << testing::readFile(errors);
        recorder.drain();
        EXPECT_FALSE(recorder.partialLine());

        ASSERT_EQ(testing::integrityCheck(file), "ok");
        std::map<std::int64_t, Row> after;
        try {
            after = openAndRead(file);
        } catch (const std::exception& error) {
            FAIL() << "the database no longer opens: " << error.what();
        }

        // The reported samples are on disk; nothing lies beyond the next one.
        Instant reported = recorder.samples().empty() ? start : recorder.samples().back();
        Instant latest = -1;
        for (const auto& [id, row] : after) latest = std::max(latest, row.end);
        std::string told = std::to_string(recorder.samples().size()) + " samples reported, the last at " +
                           local::formatDateTime(reported);
        if (!recorder.samples().empty()) {
            EXPECT_GE(latest, reported - interval - slack) << told;
        }
        EXPECT_LE(latest, reported + interval + slack) << told;

        // Rows of earlier rounds are all there, untouched; new ones begin with this round.
        for (const auto& [id, row] : before) {
            auto found = after.find(id);
            if (found == after.end()) ADD_FAILURE() << "lost: " << describe(id, row);
            else if (!(found->second == row))
                ADD_FAILURE() << "changed: " << describe(id, row) << " became " << describe(id, found->second);
        }
        for (const auto& [id, row] : after)
            if (!before.count(id) && row.start < start - slack)
                ADD_FAILURE() << "begins before the round's start " << local::formatDateTime(start) << ": "
                              << describe(id, row);

        testing::expectActivityInvariants(file);
        if (HasFailure()) return;

        before = std::move(after);
        // The next tracker starts after everything recorded so far: soon after,
        // or, one round in four, just before a midnight.
        Instant resume = std::max(latest, reported + interval);
        Instant midnight = local::addDays(local::startOfDay(resume), 1);
        next = random() % 4 == 0 ? std::max(resume, midnight - static_cast<double>(random() % 60))
                                 : resume + static_cast<double>(random() % 1800);
    }
}

} // namespace
} // namespace ombrelo
