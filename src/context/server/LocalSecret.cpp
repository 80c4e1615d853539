#include "context/server/LocalSecret.h"

#include "base/FileIO.h"
#include "base/FolderLock.h"
#include "store/KeychainHelper.h"

namespace snipwren {
std::optional<std::string> loadOrCreateSecret(KeychainHelper& secrets, const std::string& key,
                                              const std::function<std::string()>& make, const std::string& label) {
    const auto load = [&]() -> std::optional<std::string> {
        auto known = secrets.load(KeychainHelper::service, key, true);
        if (known && known->empty()) return std::nullopt;
        return known;
    };
    if (auto known = load()) return known;
    const FolderLock lock(parentPath(secrets.path(KeychainHelper::service, key).value_or("/")));
    if (auto known = load()) return known;
    const std::string made = make();
    if (made.empty()) return std::nullopt;
    secrets.save(KeychainHelper::service, key, made, label);
    return load(); // Where the folder was missing it could not be locked, so the last writer decides.
}
} // namespace snipwren
