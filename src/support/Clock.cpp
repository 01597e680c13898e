#include "support/Clock.h"

#include <chrono>

namespace ombrelo {

namespace {
class SystemClock final : public Clock {
public:
    Instant now() const override {
        using namespace std::chrono;
        return duration<double>(system_clock::now().time_since_epoch()).count();
    }
};
} // namespace

Clock& Clock::system() {
    static SystemClock clock;
    return clock;
}

} // namespace ombrelo
