// ActivityWriter: the writes the capture loop makes. Live tracking makes them in
// the activity store at once; a replay keeps them in memory and writes the whole
// session at the end, in one short transaction (ActivityBuffer).
//
// Every operation may throw (DatabaseError for the store); the tracker keeps
// what failed and tries again at its next sample.
#pragma once

#include "storage/Activity.h"
#include "storage/ActivityStore.h"

#include <cstdint>

namespace ombrelo {

class ActivityWriter {
public:
    virtual ~ActivityWriter() = default;
    // Returns the new row's id.
    virtual std::int64_t insert(const Activity& activity) = 0;
    virtual void updateEnd(std::int64_t id, Instant end) = 0;
    // Moves the end of a row that still ends at `expected`; false when another
    // program changed or removed it meanwhile (manual time put over it, say).
    virtual bool updateEndIf(std::int64_t id, Instant expected, Instant end) = 0;
    virtual void remove(std::int64_t id) = 0;
};

// The writes going straight to the activity store.
class StoreWriter final : public ActivityWriter {
public:
    explicit StoreWriter(ActivityStore& store) : store_(store) {}
    std::int64_t insert(const Activity& activity) override { return store_.insert(activity); }
    void updateEnd(std::int64_t id, Instant end) override { store_.updateEnd(id, end); }
    bool updateEndIf(std::int64_t id, Instant expected, Instant end) override {
        return store_.updateEndIf(id, expected, end);
    }
    void remove(std::int64_t id) override { store_.remove(id); }

private:
    ActivityStore& store_;
};

} // namespace ombrelo
