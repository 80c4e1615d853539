#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace snipwren {
/// Generated notes for benchmarks: Markdown in a vocabulary of English function words and invented words whose
/// frequencies fall off as in real prose, every fiftieth note in Japanese. The same seed gives the same notes.
class NoteCollection {
public:
    explicit NoteCollection(std::uint64_t seed = 1);

    /// About 1,925 bytes on average.
    std::string note(std::size_t index) const;
    /// Writes the notes below the folder, some hundreds in each of its folders; answers the bytes written.
    std::size_t write(const std::string& folder, std::size_t count) const;

    /// Words that are in a large part of all notes.
    const std::vector<std::string>& commonWords() const { return common_; }
    /// Words that are in about one note of a thousand; `index` selects one.
    const std::string& rareWord(std::size_t index) const;

private:
    const std::string& randomWord(std::uint64_t& state) const;

    std::uint64_t seed_;
    std::vector<std::string> common_;
    std::vector<std::string> words_;
    std::vector<double> cumulative_;
};
} // namespace snipwren
