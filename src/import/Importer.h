// Importer: the entries of a confirmed preview written as activities, in one
// transaction and as one batch that can be undone whole. Each entry lands on
// its project (client and project found by name ignoring case, or created,
// linked, with the entry's billable flag) with its note.
//
// Imported time is a manual correction (source "manual", no category): the
// user chose where it belongs in the other tracker, so no rule moves it.
// Undo removes the batch's activities only; projects and clients it created
// stay, since other time may have been put on them since.
//
// Main loop thread. Never throws: a failure rolls back, is logged and comes
// back as nothing, with lastError() saying why.
#pragma once

#include "import/ImportReader.h"
#include "storage/ActivityStore.h"
#include "storage/Database.h"
#include "support/Clock.h"

#include <cstdint>
#include <optional>
#include <spdlog/logger.h>
#include <string>
#include <vector>

namespace ombrelo {

class Catalog;

struct ImportBatch {
    std::string id;  // a UUID
    std::string source;
    std::string file;
    Instant at = 0;
    std::int64_t count = 0;
};

class Importer {
public:
    struct Result {
        std::string batch;
        std::int64_t imported = 0;
        std::int64_t skippedOverlaps = 0;
        std::int64_t projectsCreated = 0;
    };

    Importer(Database& db, ActivityStore& activities, Catalog& catalog, Clock& clock = Clock::system());

    // `skipOverlaps`: entries overlapping tracked time (not absences) are left out.
    std::optional<Result> run(const ImportPreview& preview, std::string_view file, bool skipOverlaps);
    // Newest first.
    std::vector<ImportBatch> batches();
    // Removes the batch's activities and the batch; false when it failed or
    // there is no such batch.
    bool undo(std::string_view batch);

    const std::optional<std::string>& lastError() const { return lastError_; }

private:
    std::vector<const ImportEntry*> withoutOverlaps(const std::vector<ImportEntry>& entries, std::int64_t& skipped);
    struct Names;
    std::optional<std::int64_t> projectID(const ImportEntry& entry, Names& names, std::int64_t& created);
    std::int64_t clientID(const std::string& name, Names& names, std::int64_t& created);

    Database& db_;
    ActivityStore& activities_;
    Catalog& catalog_;
    Clock& clock_;
    std::shared_ptr<spdlog::logger> log_;
    std::optional<std::string> lastError_;
};

} // namespace ombrelo
