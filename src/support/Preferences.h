// Preferences: the user's settings, one JSON object in
// $XDG_CONFIG_HOME/ombrelo/settings.json shared by every Ombrelo process.
//
// Reads look at the file's identity (inode, size, modification time) first and
// re-read it when another process replaced it, so a command's change reaches the
// running tracker at its next read. Writes take an exclusive lock, re-read the
// file, change one key and replace the file atomically (temporary file + rename),
// so two processes never lose each other's keys.
//
// A damaged file is never overwritten: it reads as empty (with a warning) and the
// first write moves it aside as settings.json.damaged-<time> before writing anew.
// A key of the wrong type reads as absent, so its default applies.
//
// Not thread-safe: one instance per thread (the main loop owns the process's one).
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace ombrelo {

// A setting with its default: `prefs.get(settings::idleSeconds)`.
template <typename T>
struct PreferenceKey {
    const char* name;
    T fallback;
};

class Preferences {
public:
    using Value = std::variant<bool, std::int64_t, double, std::string, std::vector<std::int64_t>,
                               std::vector<std::string>>;

    // Who writes the file besides this instance.
    enum class Writers {
        anyProcess,  // every read first checks whether the file was replaced
        thisOnly,    // a private copy: read once, then kept in memory
    };

    explicit Preferences(std::filesystem::path file, Writers writers = Writers::anyProcess);
    ~Preferences();
    Preferences(const Preferences&) = delete;
    Preferences& operator=(const Preferences&) = delete;

    // $XDG_CONFIG_HOME/ombrelo/settings.json (~/.config when unset).
    static std::filesystem::path defaultPath();
    const std::filesystem::path& path() const;

    // Typed reads; absent when the key is missing or holds another type.
    std::optional<bool> boolean(std::string_view key) const;
    std::optional<std::int64_t> integer(std::string_view key) const;
    std::optional<double> number(std::string_view key) const;
    std::optional<std::string> text(std::string_view key) const;
    std::optional<std::vector<std::int64_t>> integers(std::string_view key) const;
    std::optional<std::vector<std::string>> texts(std::string_view key) const;

    bool get(const PreferenceKey<bool>& key) const { return boolean(key.name).value_or(key.fallback); }
    std::int64_t get(const PreferenceKey<std::int64_t>& key) const { return integer(key.name).value_or(key.fallback); }
    double get(const PreferenceKey<double>& key) const { return number(key.name).value_or(key.fallback); }
    std::string get(const PreferenceKey<std::string>& key) const { return text(key.name).value_or(key.fallback); }
    std::vector<std::int64_t> get(const PreferenceKey<std::vector<std::int64_t>>& key) const {
        return integers(key.name).value_or(key.fallback);
    }
    std::vector<std::string> get(const PreferenceKey<std::vector<std::string>>& key) const {
        return texts(key.name).value_or(key.fallback);
    }

    // Throws std::system_error when the file cannot be written.
    void set(std::string_view key, const Value& value);
    void remove(std::string_view key);

    // Grows each time the settings seen by this instance change (a write here or
    // a re-read of another process's write); cheap to poll.
    std::uint64_t generation() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace ombrelo
