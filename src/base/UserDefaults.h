#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/FileIO.h"

namespace snipwren {
/// The settings: plain keys in one JSON file, shared by all of this user's Snipwren programs. A value of the wrong type
/// counts as missing. Every change is written at once, atomically, on top of what other programs wrote meanwhile; a file
/// that is no JSON object is kept aside under another name and reported. Thread safe.
class UserDefaults {
public:
    UserDefaults(FileIO& files, std::string path);
    ~UserDefaults();

    /// Reads the file. The answer is a sentence to report when a damaged file was kept aside, or could not be read.
    std::optional<std::string> load();

    std::optional<std::string> string(std::string_view key) const;
    std::optional<bool> boolean(std::string_view key) const;
    std::optional<std::int64_t> integer(std::string_view key) const;
    /// Whole numbers too.
    std::optional<double> number(std::string_view key) const;
    /// Missing when any element is not a text.
    std::optional<std::vector<std::string>> strings(std::string_view key) const;
    std::vector<std::string> keys() const;
    /// The value as JSON text, for display.
    std::optional<std::string> json(std::string_view key) const;

    using Written = FileIO::Answer<void>;
    Written set(std::string_view key, std::string_view value);
    Written set(std::string_view key, const char* value) { return set(key, std::string_view(value)); }
    Written set(std::string_view key, bool value);
    Written set(std::string_view key, std::int64_t value);
    Written set(std::string_view key, double value);
    Written set(std::string_view key, const std::vector<std::string>& value);
    /// JSON text when it is valid JSON of a kind that settings have (text, truth value, number, list of texts), else the
    /// text itself.
    Written setParsed(std::string_view key, std::string_view value);
    Written remove(std::string_view key);

private:
    struct Values;
    template <class Change>
    Written change(Change apply);
    std::optional<std::string> loadLocked();

    FileIO& files_;
    const std::string path_;
    mutable std::mutex mutex_;
    std::unique_ptr<Values> values_;
};
} // namespace snipwren
