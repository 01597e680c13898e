// The billing rule every test that writes time should leave standing: amounts
// are rounded per project and per calendar day, so the totals of a whole
// period are exactly the sum of its days' totals, in every status.
#pragma once

#include <filesystem>

namespace ombrelo::testing {

// Adds a test failure, with the first day that differs, when the totals of the
// database's whole history are not the sum of its days' totals.
void expectBillingAddsUp(const std::filesystem::path& database);

} // namespace ombrelo::testing
