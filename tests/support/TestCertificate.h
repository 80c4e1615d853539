#pragma once

#include <string>

namespace snipwren {
/// A self-signed certificate for one host name with its key, written into a folder as PEM files.
class TestCertificate {
public:
    TestCertificate(const std::string& folder, const std::string& host);
    const std::string& certificateFile() const { return certificateFile_; }
    const std::string& keyFile() const { return keyFile_; }

private:
    std::string certificateFile_, keyFile_;
};
} // namespace snipwren
