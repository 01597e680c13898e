// Insights: the day's timeline of blocks and the totals of a period, computed in
// memory from classified activities on every request and never stored.
//
// Blocks group consecutive activities of the same work less than 120 s apart,
// then absorb short interruptions: a stretch of other work under 120 s between
// two blocks of the same work disappears into one block (each item keeps its own
// classification). An absence is never absorbed, and activities shorter than a
// second are left out.
//
// Totals are one pass over the items with hash maps: idle time counts nowhere;
// billable time is priced per project and per calendar day of the activity's
// start (Project::amountCents), never per activity or block.
//
// Stateless; any thread. Calendar days are the process time zone's.
#pragma once

#include "classify/Block.h"
#include "classify/Classified.h"
#include "classify/Totals.h"
#include "support/Clock.h"

#include <memory>
#include <string_view>
#include <vector>

namespace ombrelo::Insights {

// What totals call a document: the last component of its path ("report.pdf" of
// "/home/me/report.pdf", "src" of "/home/me/src/").
std::string_view documentName(std::string_view path);

// Whether `next` continues a block made of `items` (non-empty): an absence only
// continues an absence; otherwise the project and the category must be the same
// (both none counts as the same), and notes must agree when both the block and
// `next` carry one.
bool sameWork(const std::vector<Classified>& items, const Classified& next);

// The blocks of chronological `items`.
std::vector<Block> blocks(const ClassifiedList& items);

// The totals of `items`, whatever their order. Aborts (through
// Project::amountCents) rather than return an amount beyond the 64-bit range.
Summary summary(const ClassifiedList& items);

// One total per calendar day from the day of `from` for `days` days, by the
// rules of summary; items starting outside those days are ignored.
std::vector<DayTotal> daily(const ClassifiedList& items, Instant from, int days);
// The total of the calendar day containing `day`.
DayTotal dayTotal(const ClassifiedList& items, Instant day);

} // namespace ombrelo::Insights

namespace ombrelo {

// Insights::summary of items handed over in parts (a long period's days, one
// at a time), so that totals never need every item in memory at once. Keeps
// copies of the texts it counts, none of the items.
class SummaryBuilder {
public:
    SummaryBuilder();
    ~SummaryBuilder();
    SummaryBuilder(SummaryBuilder&&) noexcept;

    void add(const Classified& item);
    void add(const ClassifiedList& items);
    Summary take() &&;

private:
    struct Tallies;
    std::unique_ptr<Tallies> tallies_;
    Summary summary_;
};

} // namespace ombrelo
