#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

namespace snipwren {
/// A private folder that is gone, with all in it, at the end of the test.
class TemporaryFolder {
public:
    TemporaryFolder() : TemporaryFolder(std::filesystem::temp_directory_path()) {}
    explicit TemporaryFolder(const std::filesystem::path& under) : path_((under / "snipwren-test-XXXXXX").string()) {
        if (!::mkdtemp(path_.data())) std::abort();
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    /// Where files live in memory, if there is such a place: for tests that flush thousands of times.
    static std::filesystem::path inMemory() {
        std::error_code ignored;
        const std::filesystem::path shared = "/dev/shm";
        return std::filesystem::is_directory(shared, ignored) ? shared : std::filesystem::temp_directory_path();
    }
    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};
} // namespace snipwren
