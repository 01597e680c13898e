#include "storage/DeviceMerge.h"

#include <gtest/gtest.h>

namespace ombrelo {
namespace {

Activity row(std::int64_t id, Instant start, Instant end, const char* device,
             Activity::Kind kind = Activity::Kind::app) {
    Activity a;
    a.id = id;
    a.start = start;
    a.end = end;
    a.appName = "App" + std::to_string(id);
    a.kind = kind;
    a.device = device;
    return a;
}

struct Piece {
    std::int64_t id;
    Instant start, end;
    bool operator==(const Piece&) const = default;
};

std::vector<Piece> pieces(const std::vector<Activity>& merged) {
    std::vector<Piece> out;
    for (const Activity& a : merged) out.push_back({a.id, a.start, a.end});
    return out;
}

TEST(DeviceMerge, SingleDevicePassesThroughUnchanged) {
    std::vector<Activity> rows{row(1, 0, 100, "a"), row(2, 50, 150, "a"), row(3, 150, 150, "a")};
    EXPECT_EQ(mergeDevices(rows), rows);
}

TEST(DeviceMerge, WorkedExample) {
    // A works 10:00–11:00; B works 10:30–10:45, then is idle 10:45–11:30.
    auto merged = mergeDevices({row(1, 0, 3600, "A"), row(2, 1800, 2700, "B"),
                                row(3, 2700, 5400, "B", Activity::Kind::idle)});
    EXPECT_EQ(pieces(merged), (std::vector<Piece>{{1, 0, 1800}, {2, 1800, 2700}, {1, 2700, 3600}, {3, 3600, 5400}}));
}

TEST(DeviceMerge, IdleNeverHidesActiveTime) {
    auto merged = mergeDevices({row(1, 0, 1000, "A", Activity::Kind::idle), row(2, 200, 400, "B")});
    double active = 0, idle = 0;
    for (const Activity& a : merged) (a.kind == Activity::Kind::idle ? idle : active) += a.end - a.start;
    EXPECT_EQ(active, 200);
    EXPECT_EQ(idle, 800);
}

TEST(DeviceMerge, ResultDoesNotDependOnInputOrder) {
    std::vector<Activity> rows{row(1, 0, 100, "B"), row(2, 0, 100, "A"), row(3, 50, 80, "C")};
    auto forward = pieces(mergeDevices(rows));
    std::reverse(rows.begin(), rows.end());
    EXPECT_EQ(pieces(mergeDevices(rows)), forward);
    double total = 0;
    for (const Piece& p : forward) total += p.end - p.start;
    EXPECT_EQ(total, 100);
}

} // namespace
} // namespace ombrelo
