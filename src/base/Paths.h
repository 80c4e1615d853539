#pragma once

#include <string>

namespace snipwren {
class FileIO;

/// Where the program keeps things. Absolute paths; nothing is created here.
struct Paths {
    std::string home;
    /// Databases, the recovery log and secrets: the folder `com.snipwren.app` itself.
    std::string applicationSupport;
    std::string defaultsFile;
    std::string documents;
    std::string downloads;
    std::string logFile;

    /// The XDG folders of this user; SNIPWREN_HOME puts all of them under one folder (tests, demonstrations).
    static Paths fromEnvironment(FileIO& files);
    static Paths under(const std::string& folder);
};
} // namespace snipwren
