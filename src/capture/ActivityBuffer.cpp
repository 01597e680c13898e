#include "capture/ActivityBuffer.h"

#include <stdexcept>

namespace ombrelo {

std::int64_t ActivityBuffer::insert(const Activity& activity) {
    rows_.emplace_back(activity);
    auto id = static_cast<std::int64_t>(rows_.size());
    rows_.back()->id = id;
    return id;
}

Activity& ActivityBuffer::row(std::int64_t id) {
    if (id < 1 || id > static_cast<std::int64_t>(rows_.size()) || !rows_[id - 1])
        throw std::out_of_range("no buffered activity " + std::to_string(id));
    return *rows_[id - 1];
}

void ActivityBuffer::updateEnd(std::int64_t id, Instant end) { row(id).end = end; }

bool ActivityBuffer::updateEndIf(std::int64_t id, Instant, Instant end) {
    updateEnd(id, end);
    return true;
}

void ActivityBuffer::remove(std::int64_t id) {
    row(id);
    rows_[id - 1].reset();
}

std::vector<ActivityBuffer::Written> ActivityBuffer::writeTo(ActivityStore& store) const {
    std::vector<Written> written;
    for (const std::optional<Activity>& kept : rows_) {
        if (!kept) continue;
        Activity activity = *kept;
        activity.id = store.insert(activity);
        written.push_back({kept->id, std::move(activity)});
    }
    return written;
}

} // namespace ombrelo
