#include "support/Clock.h"

#include <chrono>
#include <ctime>

namespace ombrelo {

namespace {
class SystemClock final : public Clock {
public:
    Instant now() const override {
        using namespace std::chrono;
        return duration<double>(system_clock::now().time_since_epoch()).count();
    }
    double uptime() const override {
        timespec time{};
        ::clock_gettime(CLOCK_BOOTTIME, &time);
        return double(time.tv_sec) + double(time.tv_nsec) / 1e9;
    }
};
} // namespace

Clock& Clock::system() {
    static SystemClock clock;
    return clock;
}

} // namespace ombrelo
