#pragma once

#include <memory>
#include <string>

#include "platform/HttpClient.h"
#include "platform/LegacyKeychain.h"
#include "platform/LoopbackListeners.h"
#include "platform/Pasteboard.h"

namespace snipwren {
/// Parts of this machine that programs without a whole host use, one at a time: whoever asks for one links no other.
std::unique_ptr<HttpClient> makeHttpClient();
std::unique_ptr<LegacyKeychain> makeLegacyKeychain();
std::unique_ptr<LoopbackListeners> makeLoopbackListeners();
/// The session's clipboard through helper programs.
std::unique_ptr<Pasteboard> makeCommandPasteboard();
/// Opens a file or an address with the program that the desktop chose for it; false when that is known to have failed.
bool openWithDesktop(const std::string& pathOrUrl);
} // namespace snipwren
