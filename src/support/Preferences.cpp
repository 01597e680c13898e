#include "support/Preferences.h"

#include "support/AtomicFile.h"
#include "support/Log.h"

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace ombrelo {

using nlohmann::json;
namespace fs = std::filesystem;

namespace {

struct FileIdentity {
    ino_t inode = 0;
    off_t size = -1;
    timespec modified{};

    bool operator==(const FileIdentity& other) const {
        return inode == other.inode && size == other.size && modified.tv_sec == other.modified.tv_sec &&
               modified.tv_nsec == other.modified.tv_nsec;
    }
};

FileIdentity identityOf(const fs::path& file) {
    struct stat info {};
    if (::stat(file.c_str(), &info) != 0) return {};
    return {info.st_ino, info.st_size, info.st_mtim};
}

[[noreturn]] void throwErrno(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// Holds an exclusive flock on a side file for the duration of a write.
class WriteLock {
public:
    explicit WriteLock(const fs::path& file) {
        fs::create_directories(file.parent_path());
        fd_ = ::open((file.string() + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        if (fd_ < 0) throwErrno("settings lock");
        if (::flock(fd_, LOCK_EX) != 0) {
            ::close(fd_);
            throwErrno("settings lock");
        }
    }
    ~WriteLock() { ::close(fd_); }
    WriteLock(const WriteLock&) = delete;
    WriteLock& operator=(const WriteLock&) = delete;

private:
    int fd_;
};

} // namespace

struct Preferences::State {
    fs::path file;
    json values = json::object();
    FileIdentity seen;
    bool damaged = false;
    bool shared = true;
    std::uint64_t generation = 0;

    void reloadIfChanged() {
        if (!shared && generation > 0) return;
        FileIdentity now = identityOf(file);
        if (now == seen && generation > 0) return;
        seen = now;
        ++generation;
        load();
    }

    void load() {
        damaged = false;
        values = json::object();
        std::optional<std::string> text = readWholeFile(file);
        if (!text) return;  // no file yet: every key has its default
        json parsed = json::parse(*text, nullptr, false);
        if (parsed.is_object()) {
            values = std::move(parsed);
            return;
        }
        damaged = true;
        Log::get("settings")->warn("Réglages illisibles, valeurs par défaut utilisées : {}", file.string());
    }

    const json* find(std::string_view key) {
        reloadIfChanged();
        auto it = values.find(std::string(key));
        return it == values.end() ? nullptr : &*it;
    }

    void wrongType(std::string_view key) {
        Log::get("settings")->warn("Réglage « {} » ignoré : type inattendu", key);
    }

    // Writes `values` atomically; REQUIRES: the write lock is held.
    void save() {
        if (damaged) {
            auto stamp = std::chrono::system_clock::now().time_since_epoch() / std::chrono::seconds(1);
            fs::path aside = file.string() + ".damaged-" + std::to_string(stamp);
            fs::rename(file, aside);
            Log::get("settings")->warn("Réglages illisibles mis de côté : {}", aside.string());
            damaged = false;
        }
        fs::path temporary = file.string() + ".tmp";
        {
            std::ofstream out(temporary, std::ios::trunc);
            out << values.dump(2) << '\n';
            out.flush();
            if (!out) throwErrno("settings write");
        }
        fs::rename(temporary, file);
        seen = identityOf(file);
        ++generation;
    }

    template <typename Change>
    void update(Change&& change) {
        WriteLock lock(file);
        seen = {};
        load();  // another process may have written since our last read
        change(values);
        save();
    }
};

Preferences::Preferences(fs::path file, Writers writers) : state_(std::make_unique<State>()) {
    state_->file = std::move(file);
    state_->shared = writers == Writers::anyProcess;
}

Preferences::~Preferences() = default;

fs::path Preferences::defaultPath() {
    const char* config = std::getenv("XDG_CONFIG_HOME");
    fs::path base;
    if (config && *config) {
        base = config;
    } else {
        const char* home = std::getenv("HOME");
        base = fs::path(home ? home : ".") / ".config";
    }
    return base / "ombrelo" / "settings.json";
}

const fs::path& Preferences::path() const { return state_->file; }

std::optional<bool> Preferences::boolean(std::string_view key) const {
    const json* v = state_->find(key);
    if (!v) return std::nullopt;
    if (v->is_boolean()) return v->get<bool>();
    state_->wrongType(key);
    return std::nullopt;
}

std::optional<std::int64_t> Preferences::integer(std::string_view key) const {
    const json* v = state_->find(key);
    if (!v) return std::nullopt;
    if (v->is_number_integer()) return v->get<std::int64_t>();
    if (v->is_number_float()) {
        double d = v->get<double>();
        if (d == static_cast<double>(static_cast<std::int64_t>(d))) return static_cast<std::int64_t>(d);
    }
    state_->wrongType(key);
    return std::nullopt;
}

std::optional<double> Preferences::number(std::string_view key) const {
    const json* v = state_->find(key);
    if (!v) return std::nullopt;
    if (v->is_number()) return v->get<double>();
    state_->wrongType(key);
    return std::nullopt;
}

std::optional<std::string> Preferences::text(std::string_view key) const {
    const json* v = state_->find(key);
    if (!v) return std::nullopt;
    if (v->is_string()) return v->get<std::string>();
    state_->wrongType(key);
    return std::nullopt;
}

std::optional<std::vector<std::int64_t>> Preferences::integers(std::string_view key) const {
    const json* v = state_->find(key);
    if (!v) return std::nullopt;
    if (v->is_array()) {
        std::vector<std::int64_t> out;
        for (const json& item : *v) {
            if (!item.is_number_integer()) {
                out.clear();
                state_->wrongType(key);
                return std::nullopt;
            }
            out.push_back(item.get<std::int64_t>());
        }
        return out;
    }
    state_->wrongType(key);
    return std::nullopt;
}

std::optional<std::vector<std::string>> Preferences::texts(std::string_view key) const {
    const json* v = state_->find(key);
    if (!v) return std::nullopt;
    if (v->is_array()) {
        std::vector<std::string> out;
        for (const json& item : *v) {
            if (!item.is_string()) {
                state_->wrongType(key);
                return std::nullopt;
            }
            out.push_back(item.get<std::string>());
        }
        return out;
    }
    state_->wrongType(key);
    return std::nullopt;
}

void Preferences::set(std::string_view key, const Value& value) {
    state_->update([&](json& values) {
        std::visit([&](const auto& v) { values[std::string(key)] = v; }, value);
    });
}

void Preferences::remove(std::string_view key) {
    if (!state_->find(key)) return;
    state_->update([&](json& values) { values.erase(std::string(key)); });
}

std::uint64_t Preferences::generation() const {
    state_->reloadIfChanged();
    return state_->generation;
}

} // namespace ombrelo
