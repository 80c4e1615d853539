#include "app/MachineParts.h"
#include "hosts/portable/CommandPasteboard.h"

namespace snipwren {
std::unique_ptr<Pasteboard> makeCommandPasteboard() { return std::make_unique<CommandPasteboard>(); }
} // namespace snipwren
