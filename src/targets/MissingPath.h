#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/FileIO.h"

namespace snipwren {
/// The sentence for a folder that the user has to choose before a capture can arrive ("Obsidian vault") and that is not
/// set or not there; none when it is. `path` is expanded. Asks the file system.
std::optional<std::string> missingPathFailure(std::string_view label, std::string_view commandName,
                                              const std::string& path, FileIO& files);
} // namespace snipwren
