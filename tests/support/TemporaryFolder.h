#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

namespace snipwren {
/// A private folder that is gone, with all in it, at the end of the test.
class TemporaryFolder {
public:
    TemporaryFolder() : path_((std::filesystem::temp_directory_path() / "snipwren-test-XXXXXX").string()) {
        if (!::mkdtemp(path_.data())) std::abort();
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};
} // namespace snipwren
