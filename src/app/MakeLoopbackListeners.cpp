#include "app/MachineParts.h"
#include "hosts/portable/ProcLoopbackListeners.h"

namespace snipwren {
std::unique_ptr<LoopbackListeners> makeLoopbackListeners() { return std::make_unique<ProcLoopbackListeners>(); }
} // namespace snipwren
