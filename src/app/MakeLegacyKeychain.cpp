#include "app/MachineParts.h"
#include "hosts/portable/NoLegacyKeychain.h"

namespace snipwren {
std::unique_ptr<LegacyKeychain> makeLegacyKeychain() { return std::make_unique<NoLegacyKeychain>(); }
} // namespace snipwren
