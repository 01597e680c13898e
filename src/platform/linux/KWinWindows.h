// KWinWindows: the window in front on KDE Plasma, as a small KWin script of
// ours reports it. The script is loaded through KWin's scripting interface on
// the session bus and calls back this tracker's connection whenever the
// active window or its caption changes; it is loaded again when KWin restarts
// and unloaded when the tracker stops. Reports are taken from KWin only.
//
// Idle time comes from KWin's Wayland idle protocol where the session has a
// Wayland connection, else from the ScreenSaver interface Plasma serves.
//
// Owned by the desktop back-end; main loop thread only.
#pragma once

#include "platform/linux/Bus.h"
#include "platform/linux/ReportedWindows.h"
#include "platform/linux/WaylandConnection.h"

#include <chrono>
#include <filesystem>

namespace ombrelo::platform {

class KWinWindows final : public ReportedWindows {
public:
    // `compositor`: KWin's Wayland connection, for idle time; may be null.
    KWinWindows(Bus& bus, std::unique_ptr<WaylandConnection> compositor);
    ~KWinWindows() override;
    KWinWindows(const KWinWindows&) = delete;
    KWinWindows& operator=(const KWinWindows&) = delete;

    WindowSourceState state() const override;
    std::optional<std::uint64_t> idleMilliseconds() override;
    int fd() const override { return compositor_ ? compositor_->fd() : -1; }
    // Also loads the script again after a failure (a KWin still starting).
    bool dispatch() override;

    static constexpr const char* service = "org.kde.KWin";
    static constexpr const char* objectPath = "/fr/ombrelo/KWinWindows";
    static constexpr const char* interface = "fr.ombrelo.KWinWindows";
    static constexpr const char* pluginName = "ombrelo-windows";
    // The script KWin runs, reporting to `trackerName`.
    static std::string script(const std::string& trackerName);

    // Called from the bus.
    int report(sd_bus_message* message);
    void kwinChanged(const std::string& owner);

private:
    // Loads the script into the KWin that owns the name now.
    void load();
    void unload();

    Bus& bus_;
    std::unique_ptr<WaylandConnection> compositor_;
    Slot object_, ownerWatch_;
    std::optional<std::string> kwin_;  // KWin's connection, when present
    std::filesystem::path scriptFile_;
    std::optional<std::string> problem_;
    std::chrono::steady_clock::time_point lastLoad_{};
};

} // namespace ombrelo::platform
