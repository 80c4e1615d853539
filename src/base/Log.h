#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace snipwren {
/// What a log line holds in the place of a person's words: how many characters they were, "(14 characters)".
std::string characterCount(std::string_view text);

/// Where log lines go: whole lines, exactly as given. Never what was typed, never a secret. Thread safe.
class Log {
public:
    virtual ~Log() = default;
    virtual void line(std::string_view text) = 0;
};

/// The log file of this user: mode 0600, at most 2 MB, one older file kept. A file that cannot be opened costs the lines,
/// never the program.
class FileLog final : public Log {
public:
    explicit FileLog(const std::string& path);
    ~FileLog() override;
    void line(std::string_view text) override;

private:
    struct State;
    std::unique_ptr<State> state_;
};

/// Keeps the lines; for tests and for programs that show them.
class MemoryLog final : public Log {
public:
    void line(std::string_view text) override {
        const std::lock_guard lock(mutex_);
        lines_.emplace_back(text);
    }
    std::vector<std::string> lines() const {
        const std::lock_guard lock(mutex_);
        return lines_;
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
};
} // namespace snipwren
