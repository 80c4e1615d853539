#pragma once

#include <functional>
#include <optional>
#include <string>

namespace snipwren {
class KeychainHelper;

/// The program's own secret of this key (service com.snipwren.app). A missing or empty one is made and saved first; of
/// programs that do so at the same moment all get the one that is kept. None when it could not be kept.
std::optional<std::string> loadOrCreateSecret(KeychainHelper& secrets, const std::string& key,
                                              const std::function<std::string()>& make, const std::string& label = {});
} // namespace snipwren
