#pragma once

#include <random>
#include <string>
#include <vector>

namespace snipwren {
/// Texts put together from given pieces, the same ones in every run of a seed.
class RandomText {
public:
    RandomText(unsigned seed, std::vector<std::string> pieces) : engine_(seed), pieces_(std::move(pieces)) {}

    std::string next(std::size_t maxPieces) {
        std::string text;
        for (std::size_t left = engine_() % (maxPieces + 1); left > 0; --left)
            text += pieces_[engine_() % pieces_.size()];
        return text;
    }

private:
    std::mt19937 engine_;
    std::vector<std::string> pieces_;
};
} // namespace snipwren
