#pragma once

#include <atomic>
#include <cerrno>

#include "base/FileIO.h"

namespace snipwren {
/// Real files, but one changing operation (the n-th from 1, `failAt`) or every one from it on fails with `code`. Only
/// operations that write are counted; reading always works.
class FaultyFileIO final : public FileIO {
public:
    int failAt = 0;
    bool failAllFromThen = false;
    int code = EIO;
    std::atomic<int> operations = 0;
    /// Whether the last append was to be flushed to the disk.
    std::atomic<bool> wasFlushed = false;

    Answer<std::string> read(const std::string& path) override { return real_.read(path); }
    Answer<void> writeAtomic(const std::string& path, std::string_view bytes, std::optional<unsigned> mode) override {
        return fails() ? refused("write", path) : real_.writeAtomic(path, bytes, mode);
    }
    Answer<void> append(const std::string& path, std::string_view bytes, const AppendOptions& options) override {
        wasFlushed = options.durable;
        return fails() ? refused("write to", path) : real_.append(path, bytes, options);
    }
    Answer<void> rewrite(const std::string& path, const Change& change, std::optional<unsigned> mode) override {
        return fails() ? refused("write", path) : real_.rewrite(path, change, mode);
    }
    Answer<void> createFolders(const std::string& path, std::optional<unsigned> mode) override {
        return fails() ? refused("create the folder", path) : real_.createFolders(path, mode);
    }
    Answer<void> setMode(const std::string& path, unsigned mode) override {
        return fails() ? refused("set the permissions of", path) : real_.setMode(path, mode);
    }
    Answer<void> remove(const std::string& path) override {
        return fails() ? refused("remove", path) : real_.remove(path);
    }
    Answer<void> rename(const std::string& from, const std::string& to) override {
        return fails() ? refused("move", from) : real_.rename(from, to);
    }
    bool exists(const std::string& path) override { return real_.exists(path); }
    bool isFolder(const std::string& path) override { return real_.isFolder(path); }
    Answer<std::uint64_t> size(const std::string& path) override { return real_.size(path); }
    Answer<std::vector<std::string>> list(const std::string& path) override { return real_.list(path); }

private:
    bool fails() {
        const int number = ++operations;
        return failAt > 0 && (failAllFromThen ? number >= failAt : number == failAt);
    }
    Answer<void> refused(const char* action, const std::string& path) const {
        return unexpected(FileError::from(action, path, code));
    }

    PosixFileIO real_;
};
} // namespace snipwren
