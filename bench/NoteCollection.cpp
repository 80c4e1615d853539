#include "NoteCollection.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <unordered_set>
#include <utility>

namespace snipwren {
namespace {
constexpr std::size_t vocabulary = 40'000;

/// splitmix64: the same numbers on every machine and library.
std::uint64_t next(std::uint64_t& state) {
    std::uint64_t z = (state += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}
std::size_t below(std::uint64_t& state, std::size_t bound) { return static_cast<std::size_t>(next(state) % bound); }

// The commonest words of English prose, each with its share of all words in hundredths of a percent.
constexpr std::pair<const char*, int> functionWords[] = {
    {"the", 600},  {"of", 300},  {"and", 280},  {"to", 250},    {"a", 210},     {"in", 200},   {"is", 100},
    {"that", 100}, {"it", 95},   {"for", 90},   {"was", 80},    {"on", 70},     {"with", 65},  {"as", 65},
    {"be", 62},    {"at", 50},   {"by", 50},    {"this", 50},   {"are", 50},    {"have", 45},  {"not", 45},
    {"from", 43},  {"or", 40},   {"but", 40},   {"they", 30},   {"we", 30},     {"you", 30},   {"what", 25},
    {"their", 25}, {"one", 25},  {"all", 25},   {"can", 20},    {"will", 20},   {"when", 20},  {"more", 20},
    {"has", 20},   {"had", 20},  {"use", 16},   {"time", 12},   {"then", 12},   {"these", 12}, {"them", 13},
    {"would", 15}, {"who", 15},  {"into", 13},  {"about", 15},  {"there", 22},  {"which", 25}, {"other", 12},
    {"some", 13},  {"note", 10}, {"work", 10},  {"meeting", 8}, {"project", 8}, {"plan", 7},   {"week", 7},
    {"team", 7},   {"data", 7},  {"should", 8}, {"because", 8}, {"after", 8},   {"people", 6}, {"first", 6}};
constexpr const char* onsets[] = {"b", "c",  "d",  "f",  "g",  "h",  "l",  "m",  "n",  "p",  "r",  "s",  "t",
                                  "v", "br", "cl", "cr", "dr", "fl", "gr", "pl", "pr", "sc", "st", "tr", "ch"};
constexpr const char* vowels[] = {"a", "e", "i", "o", "u", "ai", "ea", "ou"};
constexpr const char* codas[] = {"", "n", "r", "s", "t", "l", "m", "nd", "st", "ck"};
constexpr const char* endings[] = {"", "", "", "ing", "ed", "er", "tion", "ment", "ly", "s"};
constexpr const char* japanese[] = {"会議", "東京", "予定", "資料", "計画", "確認", "開発", "設計",   "の",
                                    "を",   "に",   "は",   "する", "から", "です", "ます", "データ", "システム"};

template <std::size_t N>
const char* pick(const char* const (&list)[N], std::uint64_t& state) {
    return list[below(state, N)];
}
} // namespace

NoteCollection::NoteCollection(std::uint64_t seed) : seed_(seed) {
    std::uint64_t state = seed;
    std::unordered_set<std::string> seen;
    double sum = 0;
    for (const auto& [word, share] : functionWords) {
        if (std::string(word).size() > 1 && share >= 20) common_.emplace_back(word);
        words_.emplace_back(word);
        seen.emplace(word);
        cumulative_.push_back(sum += share / 10000.0);
    }
    double harmonic = 0;
    constexpr std::size_t flat = 60; // Keeps the first invented words from becoming function words.
    for (std::size_t i = 0; i < vocabulary; ++i) harmonic += 1.0 / static_cast<double>(i + flat);
    const double rest = 1.0 - sum;
    for (std::size_t i = 0; i < vocabulary;) {
        std::string word;
        for (std::size_t syllables = 1 + below(state, 3); syllables > 0; --syllables)
            word += std::string(pick(onsets, state)) + pick(vowels, state) + pick(codas, state);
        word += pick(endings, state);
        if (!seen.insert(word).second) continue;
        words_.push_back(word);
        cumulative_.push_back(sum += rest / (static_cast<double>(i + flat) * harmonic));
        ++i;
    }
}

const std::string& NoteCollection::rareWord(std::size_t index) const {
    return words_[words_.size() / 8 + index * 7919 % (words_.size() / 2)];
}

const std::string& NoteCollection::randomWord(std::uint64_t& state) const {
    const double at = static_cast<double>(next(state) >> 11) * 0x1.0p-53 * cumulative_.back();
    const auto found = std::upper_bound(cumulative_.begin(), cumulative_.end(), at);
    return words_[static_cast<std::size_t>(std::min(found, cumulative_.end() - 1) - cumulative_.begin())];
}

std::string NoteCollection::note(std::size_t index) const {
    std::uint64_t state = seed_ * 1'000'003 + index;
    std::string text = "# " + randomWord(state) + " " + randomWord(state) + "\n\n";
    if (index % 50 == 49) {
        for (std::size_t words = 100 + below(state, 300); words > 0; --words) {
            text += pick(japanese, state);
            if (below(state, 12) == 0) text += "。";
            if (below(state, 60) == 0) text += "\n";
        }
        return text + "\n";
    }
    for (std::size_t words = 40 + below(state, 338); words > 0; --words) {
        const std::string& word = randomWord(state);
        switch (below(state, 80)) {
        case 0: text += "**" + word + "** "; break;
        case 1: text += "[" + word + "](https://example.org/" + word + ") "; break;
        case 2: text += word + ".\n\n"; break;
        case 3: text += "\n## " + word + "\n- "; break;
        case 4: text += word + "_" + randomWord(state) + " "; break;
        default: text += word + " ";
        }
    }
    return text + "\n";
}

std::size_t NoteCollection::write(const std::string& folder, std::size_t count) const {
    constexpr std::size_t perFolder = 250;
    std::size_t bytes = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const std::string inside = folder + "/area " + std::to_string(i / perFolder);
        if (i % perFolder == 0) std::filesystem::create_directories(inside);
        const std::string text = note(i);
        std::ofstream(inside + "/note " + std::to_string(i) + ".md", std::ios::binary) << text;
        bytes += text.size();
    }
    return bytes;
}
} // namespace snipwren
