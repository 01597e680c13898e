#include "support/Log.h"

#include <cstdlib>
#include <mutex>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

namespace ombrelo::Log {

namespace {
spdlog::level::level_enum& defaultLevel() {
    static spdlog::level::level_enum level = spdlog::level::warn;
    return level;
}

spdlog::level::level_enum configuredLevel() {
    const char* level = std::getenv("OMBRELO_LOG");
    return level ? spdlog::level::from_str(level) : defaultLevel();
}
} // namespace

void setDefaultLevel(spdlog::level::level_enum level) {
    defaultLevel() = level;
    spdlog::apply_all([](const std::shared_ptr<spdlog::logger>& logger) { logger->set_level(configuredLevel()); });
}

std::shared_ptr<spdlog::logger> get(std::string_view category) {
    static std::mutex mutex;
    static auto sink = std::make_shared<spdlog::sinks::stderr_sink_mt>();
    std::lock_guard lock(mutex);
    std::string name(category);
    if (auto existing = spdlog::get(name)) return existing;
    auto logger = std::make_shared<spdlog::logger>(name, sink);
    logger->set_pattern("ombrelo [%n] %l: %v");
    logger->set_level(configuredLevel());
    spdlog::register_logger(logger);
    return logger;
}

} // namespace ombrelo::Log
