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

    // The wall clock, shared by the whole process.
    static Clock& system();
};

// A clock that only moves when told to; used by tests and by replay.
class ManualClock final : public Clock {
public:
    explicit ManualClock(Instant start = 0) : now_(start) {}
    Instant now() const override { return now_; }
    void set(Instant t) { now_ = t; }
    void advance(double seconds) { now_ += seconds; }

private:
    Instant now_;
};

} // namespace ombrelo
