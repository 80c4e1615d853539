#include "cli/StoreAccess.h"

#include <ostream>

#include <nlohmann/json.hpp>

#include "app/LocalStore.h"
#include "cli/Command.h"

namespace snipwren {
void withDatabase(CommandContext& context, const std::function<void(LocalStore&)>& work) {
    LocalStore store(context.environment);
    store.open();
    if (!store.database().isPersistent())
        return context.fail(std::string(DatabaseManager::fileName) + " could not be opened. The reason stands in \""
                            + context.environment.paths().logFile + "\".");
    work(store);
}

void printJson(CommandContext& context, const nlohmann::json& value) {
    context.out << value.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << "\n";
}
} // namespace snipwren
