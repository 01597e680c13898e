// Browsers' pages as the extension reports them, and what the capture loop
// records of them: the page in front of the right browser, never a stale one,
// and nothing of a private window.
#include "capture/ActivityTracker.h"
#include "capture/BrowserPages.h"
#include "capture/PrivacyRules.h"
#include "capture/ScriptedDesktop.h"
#include "support/LocalTime.h"
#include "support/Preferences.h"
#include "support/Settings.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>

namespace ombrelo {
namespace {

BrowserReport report(int pid, Instant at, std::string url, std::string domain) {
    return {.pid = pid, .at = at, .url = url, .title = "Tab of " + domain, .domain = domain};
}

TEST(BrowserPages, ThePageInFrontOfEachBrowserAndNeverAStaleOne) {
    BrowserPages pages;
    const Instant now = 1'763'880'000;
    EXPECT_FALSE(pages.page(100));
    EXPECT_FALSE(pages.lastReport());

    EXPECT_TRUE(pages.take(report(100, now - 1, "https://alpha.test/a", "alpha.test"), now));
    EXPECT_EQ(pages.page(100), (PageContext{"alpha.test", "https://alpha.test/a", "Tab of alpha.test", false}));
    EXPECT_EQ(pages.lastReport(), now);
    EXPECT_FALSE(pages.page(200)) << "another browser's window shows another page";
    EXPECT_TRUE(pages.page(std::nullopt)) << "a window without process: the one browser that reports";

    // Made too long before it arrived, or ahead of the clock: the page stays as it was.
    EXPECT_FALSE(pages.take(report(100, now - 6, "https://beta.test/", "beta.test"), now));
    EXPECT_FALSE(pages.take(report(100, now + 6, "https://beta.test/", "beta.test"), now));
    EXPECT_FALSE(pages.take(report(1, now, "https://beta.test/", "beta.test"), now));
    EXPECT_EQ(pages.page(100)->domain, "alpha.test");

    EXPECT_TRUE(pages.take(report(200, now, "http://beta.test/b", "beta.test"), now));
    EXPECT_EQ(pages.page(200)->domain, "beta.test");
    EXPECT_FALSE(pages.page(std::nullopt)) << "two browsers: no guessing";

    // The browser lost the focus: it shows no page until it says which.
    EXPECT_TRUE(pages.take({.pid = 100, .at = now, .focused = false}, now));
    EXPECT_FALSE(pages.page(100));
    EXPECT_TRUE(pages.reports(100));
    pages.forget(100);
    EXPECT_FALSE(pages.reports(100));

    EXPECT_TRUE(pages.take({.pid = 200, .at = now, .incognito = true, .url = "https://secret.test/",
                            .title = "Secret", .domain = "secret.test"},
                           now));
    EXPECT_EQ(pages.page(200), (PageContext{.privateWindow = true})) << "nothing of a private window is kept";
}

class BrowserCaptureTest : public ::testing::Test {
protected:
    testing::ScopedTimeZone zone{"Europe/Paris"};
    testing::TempDir dir;
    Preferences preferences{dir / "settings.json"};
    Database db{dir / "ombrelo.sqlite"};
    ActivityStore store{db};
    ManualClock clock{local::make(2025, 3, 10, 9, 0, 0)};
    PrivacyRules privacy{preferences};
    ScriptedDesktop desktop{clock, privacy};
    ActivityTracker tracker{&store, desktop, clock, preferences};

    void TearDown() override { testing::expectActivityInvariants(db.path()); }

    void showPage(PageContext page) {
        clock.advance(30);
        desktop.setPage(std::move(page));
        tracker.checkTitle(clock.now());
    }
};

TEST_F(BrowserCaptureTest, EachPageIsItsOwnActivityAndPrivatePagesKeepNothing) {
    preferences.set(settings::privateDomains.name, std::vector<std::string>{"bank.test"});
    desktop.bringToFront({{"chromium", "Chromium", 4242}, "Chromium", std::nullopt,
                          PageContext{"alpha.test", "https://alpha.test/a", std::nullopt, false}});
    tracker.start();
    showPage({"beta.test", "https://beta.test/b", std::nullopt, false});
    showPage({.privateWindow = true});
    showPage({"www.bank.test", "https://www.bank.test/accounts", std::nullopt, false});
    showPage({"alpha.test", "https://alpha.test/a", std::nullopt, false});
    clock.advance(30);
    tracker.close(clock.now());

    // The private window and the private site are one stretch of private time.
    std::vector<Activity> rows = store.activities(0, 1e10);
    ASSERT_EQ(rows.size(), 4u);
    EXPECT_EQ(rows[0].domain, "alpha.test");
    EXPECT_EQ(rows[0].url, "https://alpha.test/a");
    EXPECT_EQ(rows[1].domain, "beta.test");
    EXPECT_EQ(rows[2].kind, Activity::Kind::privateTime);
    EXPECT_FALSE(rows[2].title || rows[2].domain || rows[2].url) << "a private page leaves nothing";
    EXPECT_DOUBLE_EQ(rows[2].end - rows[2].start, 60);
    EXPECT_EQ(rows[3].domain, "alpha.test");
    EXPECT_EQ(rows[3].kind, Activity::Kind::app);
}

} // namespace
} // namespace ombrelo
