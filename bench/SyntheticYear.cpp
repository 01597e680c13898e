#include "SyntheticYear.h"

#include "storage/ActivityStore.h"
#include "support/LocalTime.h"

#include <random>

namespace ombrelo::bench {

namespace {

struct App {
    const char* bundleID;
    const char* name;
    const char* domain;  // for browsers: one of several sites
};

constexpr App apps[] = {
    {"code", "Visual Studio Code", nullptr},      {"org.gnome.terminal", "Terminal", nullptr},
    {"firefox", "Firefox", "github.com"},         {"firefox", "Firefox", "stackoverflow.com"},
    {"firefox", "Firefox", "mail.google.com"},    {"firefox", "Firefox", "youtube.com"},
    {"firefox", "Firefox", "docs.google.com"},    {"firefox", "Firefox", "client-dupont.fr"},
    {"chromium", "Chromium", "figma.com"},        {"chromium", "Chromium", "notion.so"},
    {"thunderbird", "Thunderbird", nullptr},      {"slack", "Slack", nullptr},
    {"libreoffice-calc", "LibreOffice Calc", nullptr}, {"org.gnome.nautilus", "Fichiers", nullptr},
    {"zoom", "Zoom", nullptr},                    {"spotify", "Spotify", nullptr},
};

constexpr const char* clients[] = {"Dupont", "Martin", "Leroy", "Moreau", "Garcia", "Bernard", "Petit", "Roux"};
constexpr const char* subjects[] = {"Devis", "Facture", "Maquette", "Réunion", "Refonte", "API", "Bug", "Relecture"};

} // namespace

std::vector<Activity> syntheticYear(Instant yearStart, int count, unsigned seed) {
    std::mt19937 random(seed);
    std::vector<Activity> out;
    out.reserve(count);
    int workingDays = 0;
    for (int d = 0; d < 365; ++d)
        if (int w = local::weekday(local::addDays(yearStart, d)); w != 1 && w != 7) ++workingDays;
    const int perDay = count / workingDays + 1;
    const double workSeconds = 9 * 3600.0;  // 08:30–17:30 with lunch inside
    const double mean = workSeconds / perDay;

    for (int d = 0; d < 365 && static_cast<int>(out.size()) < count; ++d) {
        Instant day = local::addDays(yearStart, d);
        if (int w = local::weekday(day); w == 1 || w == 7) continue;
        Instant t = day + 8.5 * 3600;
        for (int i = 0; i < perDay && static_cast<int>(out.size()) < count; ++i) {
            Activity a;
            a.start = t;
            double length = std::uniform_real_distribution<double>(0.3, 1.7)(random) * mean;
            a.end = t + length;
            int pick = std::uniform_int_distribution<int>(0, 99)(random);
            if (pick < 4) {
                a.kind = Activity::Kind::idle;
                a.appName = "Inactif";
            } else {
                const App& app = apps[random() % std::size(apps)];
                a.bundleID = app.bundleID;
                a.appName = app.name;
                if (app.domain) a.domain = app.domain;
                // A few thousand distinct titles: client × subject × number.
                a.title = std::string(subjects[random() % std::size(subjects)]) + " " +
                          clients[random() % std::size(clients)] + " " + std::to_string(random() % 40);
            }
            out.push_back(std::move(a));
            t = out.back().end + (i == perDay / 2 ? 3600 : 2);  // lunch, else a short gap
        }
    }
    return out;
}

void writeSyntheticYear(const std::filesystem::path& path, Instant yearStart, int count) {
    Database db(path);
    ActivityStore store(db);
    Transaction transaction(db);
    for (const Activity& a : syntheticYear(yearStart, count)) store.insert(a);
    transaction.commit();
}

} // namespace ombrelo::bench
