#include "storage/PendingRestore.h"

namespace ombrelo {

RestoreResult applyPendingRestore(const std::filesystem::path&, Instant) { return {}; }

} // namespace ombrelo
