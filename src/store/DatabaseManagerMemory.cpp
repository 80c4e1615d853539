// What is remembered of typing: captured texts, their skeletons and the field memory.

#include <fmt/format.h>

#include "base/Clock.h"
#include "base/Log.h"
#include "base/SerialQueue.h"
#include "base/Text.h"
#include "base/UserDefaults.h"
#include "store/DatabaseManager.h"

namespace snipwren {
namespace {
constexpr const char* insertCapturedTextSql =
    "INSERT INTO captured_texts (raw_text, app_bundle_id, domain, timestamp)\nVALUES (?, ?, ?, ?);";
constexpr double templateAge = 2'592'000; // Seconds: 30 days.
constexpr double secondsPerDay = 86400;
} // namespace

std::optional<std::int64_t> DatabaseManager::insertCapturedText(const std::string& rawText,
                                                                const std::string& appBundleId,
                                                                const OptionalText& domain) {
    return queue_.call([&]() -> std::optional<std::int64_t> {
        if (!run(insertCapturedTextSql, rawText, appBundleId, domain, now())) return std::nullopt;
        return database_->lastInsertRowId();
    });
}

void DatabaseManager::insertCapturedTextAsync(std::string rawText, std::string appBundleId, OptionalText domain) {
    queue_.async(
        [this, rawText = std::move(rawText), appBundleId = std::move(appBundleId), domain = std::move(domain)] {
            // Not the database's own message: a constraint's message never holds the text, but the fault is told in words
            // that cannot.
            if (!attempt(insertCapturedTextSql, rawText, appBundleId, domain, now()))
                log_.line("❌ SQLite Error: Failed to insert captured text.");
        });
}

std::optional<std::int64_t> DatabaseManager::insertSkeleton(std::int64_t rawTextId, const std::string& skeletonText) {
    return queue_.call([&]() -> std::optional<std::int64_t> {
        if (!run("INSERT INTO skeletons (raw_text_id, skeleton_text, occurrence_count, last_seen)\n"
                 "VALUES (?, ?, 1, ?);",
                 rawTextId, skeletonText, now()))
            return std::nullopt;
        return database_->lastInsertRowId();
    });
}

bool DatabaseManager::incrementSkeletonCount(std::int64_t skeletonId) {
    return queue_.call([&] {
        return run("UPDATE skeletons SET occurrence_count = occurrence_count + 1,\nlast_seen = ?\nWHERE id = ?;", now(),
                   skeletonId);
    });
}

bool DatabaseManager::deleteSkeleton(std::int64_t skeletonId) {
    return queue_.call([&] { return run("DELETE FROM skeletons WHERE id = ?;", skeletonId); });
}

DatabaseManager::Rows DatabaseManager::fetchAllSkeletons() {
    return executeQuery("SELECT id, raw_text_id, skeleton_text, occurrence_count, last_seen FROM skeletons;");
}

DatabaseManager::Rows DatabaseManager::fetchActiveTemplates(const std::string& appBundleId) {
    const std::string app = lowercased(appBundleId);
    const bool isTerminal = app.find("terminal") != std::string::npos || app.find("iterm") != std::string::npos;
    const std::int64_t threshold = isTerminal ? defaults_.integer("repetitionThresholdTerminal").value_or(2)
                                              : defaults_.integer("repetitionThresholdGeneral").value_or(3);
    return executeQuery(
        fmt::format("SELECT s.id, s.skeleton_text, s.occurrence_count, s.last_seen, c.raw_text\nFROM skeletons s\n"
                    "JOIN captured_texts c ON s.raw_text_id = c.id\n"
                    "WHERE s.occurrence_count >= {} AND s.last_seen >= {};",
                    threshold, now() - templateAge));
}

DatabaseManager::Rows DatabaseManager::fetchDiscoveredSkeletons() {
    return executeQuery("SELECT s.id, s.skeleton_text, s.occurrence_count, s.last_seen, c.raw_text\nFROM skeletons s\n"
                        "JOIN captured_texts c ON s.raw_text_id = c.id\nORDER BY s.occurrence_count DESC;");
}

void DatabaseManager::clearAllHistory() {
    queue_.sync([this] {
        nonQuery("DELETE FROM skeletons;");
        nonQuery("DELETE FROM captured_texts;");
        nonQuery("DELETE FROM field_memory;");
    });
}

void DatabaseManager::insertFieldMemory(FieldValue value) {
    queue_.async([this, value = std::move(value)] {
        const double moment = now();
        told(attempt("INSERT INTO field_memory (field_context, app_bundle_id, domain, field_label, value_hash, "
                     "value_encrypted, frequency, last_used)\nVALUES (?, ?, ?, ?, ?, ?, 1, ?)\n"
                     "ON CONFLICT(field_context, app_bundle_id, domain, field_label, value_hash) DO UPDATE SET "
                     "frequency = frequency + 1,\nlast_used = ?;",
                     value.fieldContext, value.appBundleId, value.domain, value.fieldLabel, value.valueHash,
                     value.valueEncryptedBase64, moment, moment),
             "❌ SQLite Error Field Memory Insert: ");
    });
}

DatabaseManager::Rows DatabaseManager::fetchFieldMemory(const std::string& fieldContext, const std::string& appBundleId,
                                                        const OptionalText& domain) {
    constexpr const char* faultWords = "❌ SQLite Error Field Memory Fetch: ";
    const std::string start = "SELECT field_label, value_encrypted, frequency, last_used FROM field_memory\n"
                              "WHERE field_context = ? AND app_bundle_id = ? ";
    const std::string end = "ORDER BY frequency DESC, last_used DESC LIMIT 5;";
    return queue_.call([&] {
        return domain ? read(prepare(start + "AND domain = ? " + end), faultWords, rowOf, fieldContext, appBundleId,
                             *domain)
                      : read(prepare(start + end), faultWords, rowOf, fieldContext, appBundleId);
    });
}

DatabaseManager::Rows DatabaseManager::fetchAllFieldMemories() {
    return executeQuery("SELECT id, field_context, app_bundle_id, domain, field_label, frequency, last_used\n"
                        "FROM field_memory ORDER BY last_used DESC;");
}

bool DatabaseManager::deleteFieldMemory(std::int64_t id) {
    return queue_.call([&] { return run("DELETE FROM field_memory WHERE id = ?;", id); });
}

bool DatabaseManager::purgeOldFieldMemory(int days) {
    return executeNonQueryWithParams("DELETE FROM field_memory WHERE last_used < ?;",
                                     {fmt::format("{}", now() - days * secondsPerDay)});
}
} // namespace snipwren
