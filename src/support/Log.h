// Log: one named logger per component ("database", "capture", …), writing to
// stderr, which the journal collects under systemd. Messages are French.
// The level comes from OMBRELO_LOG (trace, debug, info, warn, error, off); without
// it, short commands log warnings only and the tracker also logs information.
#pragma once

#include <memory>
#include <spdlog/logger.h>
#include <string_view>

namespace ombrelo::Log {

std::shared_ptr<spdlog::logger> get(std::string_view category);

// The level used when OMBRELO_LOG is not set, for loggers made from now on and
// those already made.
void setDefaultLevel(spdlog::level::level_enum level);

} // namespace ombrelo::Log
