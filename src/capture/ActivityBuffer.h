// ActivityBuffer: the rows of a simulated session, kept in memory while it runs
// and written to the activity store at the end, so that a long replay never holds
// the database's write lock for long and a failure keeps nothing.
//
// Ids are the buffer's own (1, 2, …) until the rows are written. Not
// thread-safe.
#pragma once

#include "capture/ActivityWriter.h"

#include <optional>
#include <vector>

namespace ombrelo {

class ActivityBuffer final : public ActivityWriter {
public:
    std::int64_t insert(const Activity& activity) override;
    // Throws std::out_of_range for an id the buffer never gave or removed.
    void updateEnd(std::int64_t id, Instant end) override;
    // Nobody else writes a buffer: always true.
    bool updateEndIf(std::int64_t id, Instant expected, Instant end) override;
    void remove(std::int64_t id) override;

    // A row as the store wrote it, with the id the session knew it by.
    struct Written {
        std::int64_t bufferID;
        Activity activity;
    };
    // Inserts the rows still kept into `store`, in the order they were made;
    // the caller holds the transaction. Throws DatabaseError.
    std::vector<Written> writeTo(ActivityStore& store) const;

private:
    Activity& row(std::int64_t id);

    std::vector<std::optional<Activity>> rows_;  // index = id − 1; removed rows empty
};

} // namespace ombrelo
