#pragma once

#include <cstdint>
#include <string>

namespace snipwren {
/// Tells the programs that share a folder which of them still run. Each holds one byte of a common file locked for as long
/// as it lives; the system gives the lock back however the program ends, and no other program can be taken for it.
class ProgramSession {
public:
    /// `number` is random and becomes this program's; 0 is nobody's.
    ProgramSession(std::string file, std::uint64_t number);
    ProgramSession(const ProgramSession&) = delete;
    ProgramSession& operator=(const ProgramSession&) = delete;
    ~ProgramSession();

    std::uint64_t number() const { return number_; }
    /// Whether the program of that number runs. Where the file system has no locks every other one counts as ended: a text
    /// found twice is better than one that nobody looks for.
    bool isAlive(std::uint64_t number) const;

private:
    const std::string file_;
    const std::uint64_t number_;
    int fd_ = -1;
};
} // namespace snipwren
