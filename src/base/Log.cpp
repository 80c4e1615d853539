#include "base/Log.h"

#include <spdlog/logger.h>
#include <spdlog/sinks/rotating_file_sink.h>

#include "base/FileIO.h"
#include "base/Text.h"

namespace snipwren {
std::string characterCount(std::string_view text) {
    const std::size_t count = codePointCount(text);
    return "(" + std::to_string(count) + (count == 1 ? " character)" : " characters)");
}

struct FileLog::State {
    std::shared_ptr<spdlog::logger> logger;
};

FileLog::FileLog(const std::string& path) : state_(std::make_unique<State>()) {
    constexpr std::size_t maxBytes = 2 * 1024 * 1024;
    PosixFileIO files;
    // Made by us first, so that no moment exists in which others may read it. Rotation keeps the mode of a new file
    // private through the handler below.
    if (!files.createFolders(parentPath(path), privateFolderMode)) return;
    FileIO::AppendOptions created;
    created.mode = privateFileMode;
    if (!files.append(path, "", created) || !files.setMode(path, privateFileMode)) return;
    spdlog::file_event_handlers handlers;
    handlers.after_open = [](const spdlog::filename_t& name, std::FILE*) {
        static_cast<void>(PosixFileIO().setMode(name, privateFileMode));
    };
    try {
        auto sink = std::make_shared<spdlog::sinks::rotating_file_sink_mt>(path, maxBytes, 1, false, handlers);
        sink->set_pattern("%Y-%m-%d %H:%M:%S.%e %v");
        state_->logger = std::make_shared<spdlog::logger>("snipwren", std::move(sink));
        state_->logger->flush_on(spdlog::level::info);
    } catch (const spdlog::spdlog_ex&) {
        state_->logger.reset();
    }
}

FileLog::~FileLog() = default;

void FileLog::line(std::string_view text) {
    if (state_->logger) state_->logger->info("{}", text);
}
} // namespace snipwren
