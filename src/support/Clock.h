// Clock: where "now" comes from. Everything that reads the time takes a Clock so
// that tests and the replay command can pin it.
#pragma once

namespace ombrelo {

// An instant: seconds since 1970-01-01 00:00:00 UTC, fractional. The database
// stores the same unit, so no conversion happens at the storage boundary.
using Instant = double;

class Clock {
public:
    virtual ~Clock() = default;
    virtual Instant now() const = 0;
    // Seconds on a clock that keeps running while the machine sleeps or the
    // process is stopped, and that nobody can set: the elapsed uptime between
    // two samples tells whether the process ran in between.
    virtual double uptime() const = 0;

    // The wall clock, shared by the whole process.
    static Clock& system();
};

// A clock that only moves when told to; used by tests and by replay. Its uptime
// stands still unless a test says that time passed without the process
// running, so a simulated session never looks like a suspended one.
class ManualClock final : public Clock {
public:
    explicit ManualClock(Instant start = 0) : now_(start) {}
    Instant now() const override { return now_; }
    double uptime() const override { return uptime_; }
    void set(Instant t) { now_ = t; }
    void advance(double seconds) { now_ += seconds; }
    // `seconds` pass while the process is frozen (asleep, stopped).
    void passFrozen(double seconds) {
        now_ += seconds;
        uptime_ += seconds;
    }

private:
    Instant now_;
    double uptime_ = 0;
};

} // namespace ombrelo
