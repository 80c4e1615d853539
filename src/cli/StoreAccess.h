#pragma once

#include <functional>

#include <nlohmann/json_fwd.hpp>

namespace snipwren {
struct CommandContext;
class LocalStore;

/// Runs the work on the opened database. When its file cannot be opened the command fails: an empty database in memory
/// would show nothing and keep nothing.
void withDatabase(CommandContext& context, const std::function<void(LocalStore&)>& work);
void printJson(CommandContext& context, const nlohmann::json& value);
} // namespace snipwren
