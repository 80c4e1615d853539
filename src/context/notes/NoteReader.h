#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "base/FileIO.h"
#include "context/graph/KnowledgeStore.h"
#include "context/notes/NoteFolderWalk.h"

namespace snipwren {
/// Reads and strips notes on threads of its own, a bounded amount ahead of the one consumer, which gets them in the
/// order of the list: the same folders always give the same index. Its threads end with it.
class NoteReader {
public:
    /// A larger file is no note that somebody wrote, and would be held in memory several times.
    static constexpr std::uint64_t largestFile = 16ull * 1024 * 1024;
    struct Note {
        /// None when the file is left out; then `problem` says why.
        std::optional<KnowledgeDocument> document;
        std::string problem;
    };

    NoteReader(FileIO& files, const std::vector<NoteFile>& notes) : files_(files), notes_(notes), slots_(lookAhead) {}
    NoteReader(const NoteReader&) = delete;
    NoteReader& operator=(const NoteReader&) = delete;
    ~NoteReader();

    void start(unsigned threads);
    /// The next note; none at the end or when stopped.
    std::optional<Note> next(const std::stop_token& stop);

private:
    static constexpr std::size_t lookAhead = 512;
    static constexpr std::size_t bytesAhead = 24u * 1024 * 1024;

    void work(const std::stop_token& stop);
    Note read(const NoteFile& file) const;

    FileIO& files_;
    const std::vector<NoteFile>& notes_;
    std::mutex mutex_;
    std::condition_variable_any wake_;
    std::vector<std::optional<Note>> slots_;
    std::size_t claimed_ = 0;
    std::size_t consumed_ = 0;
    std::size_t bytes_ = 0;
    std::vector<std::jthread> threads_; // Last: they use all of the above.
};
} // namespace snipwren
