#include "app/MachineParts.h"
#include "hosts/portable/DesktopOpener.h"

namespace snipwren {
bool openWithDesktop(const std::string& pathOrUrl) { return DesktopOpener().open(pathOrUrl); }
} // namespace snipwren
