// OtherWrites: whether another connection (a command, an import, the
// interface) committed to the file since the last look, for the long-lived
// objects that keep what they read and must read it again then. Each keeps its
// own, since each looks at its own moments.
#pragma once

#include "storage/Database.h"

#include <cstdint>

namespace ombrelo {

class OtherWrites {
public:
    explicit OtherWrites(Database& db) : db_(db), seen_(db.dataVersion()) {}

    // True once per change: false again until the next commit elsewhere.
    // Throws DatabaseError.
    bool happened() {
        std::int64_t version = db_.dataVersion();
        if (version == seen_) return false;
        seen_ = version;
        return true;
    }

private:
    Database& db_;
    std::int64_t seen_;
};

} // namespace ombrelo
