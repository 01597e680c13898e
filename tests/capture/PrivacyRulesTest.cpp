#include "capture/PrivacyRules.h"
#include "support/Settings.h"
#include "testing/TestSupport.h"

#include <gtest/gtest.h>

namespace ombrelo {
namespace {

TEST(PrivacyRules, aDomainCoversItselfAndItsSubDomainsOnly) {
    EXPECT_TRUE(PrivacyRules::domainCovers("bank.fr", "bank.fr"));
    EXPECT_TRUE(PrivacyRules::domainCovers("bank.fr", "www.BANK.fr"));
    EXPECT_TRUE(PrivacyRules::domainCovers("*.bank.fr", "espace.client.bank.fr."));
    EXPECT_FALSE(PrivacyRules::domainCovers("bank.fr", "mybank.fr"));
    EXPECT_FALSE(PrivacyRules::domainCovers("bank.fr", "bank.fr.evil.com"));
    EXPECT_FALSE(PrivacyRules::domainCovers("www.bank.fr", "bank.fr"));
    EXPECT_FALSE(PrivacyRules::domainCovers("", "bank.fr"));
}

TEST(PrivacyRules, listsFromTheSettingsAndTheirChanges) {
    testing::TempDir dir;
    Preferences preferences{dir / "settings.json"};
    PrivacyRules rules{preferences};
    EXPECT_FALSE(rules.isPrivate("org.keepassxc.KeePassXC", "bank.fr", "Santé"));

    preferences.set(settings::privateApps.name, std::vector<std::string>{"org.keepassxc.KeePassXC"});
    preferences.set(settings::privateDomains.name, std::vector<std::string>{"bank.fr"});
    preferences.set(settings::privateTitleWords.name, std::vector<std::string>{"Santé", " "});

    EXPECT_TRUE(rules.isPrivate("ORG.KEEPASSXC.KEEPASSXC", std::nullopt, std::nullopt));
    EXPECT_FALSE(rules.isPrivate("org.keepassxc", std::nullopt, std::nullopt)) << "whole ids only";
    EXPECT_TRUE(rules.isPrivate("firefox", "comptes.bank.fr", "Mes comptes"));
    EXPECT_FALSE(rules.isPrivate("firefox", "mybank.fr", "Mes comptes"));
    EXPECT_TRUE(rules.isPrivate("code", std::nullopt, "Dossier SANTE 2025.pdf"));
    EXPECT_FALSE(rules.isPrivate("code", std::nullopt, "main.cpp")) << "a blank word matches nothing";
    EXPECT_FALSE(rules.isPrivate(std::nullopt, std::nullopt, std::nullopt));

    preferences.remove(settings::privateDomains.name);
    EXPECT_FALSE(rules.isPrivate("firefox", "comptes.bank.fr", "Mes comptes"));
}

} // namespace
} // namespace ombrelo
