#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include "base/Result.h"
#include "base/Text.h"

namespace snipwren {
enum class LineFault { tooLong };

/// Puts the lines of a byte stream together again, however its packets were cut: a line, or a character within it, may
/// span any number of them. Not thread safe.
class LineBuffer {
public:
    static constexpr std::size_t maxLine = std::size_t{16} << 20;

    /// The lines that are now complete, as one block that ends in a line feed; empty when there is none.
    Result<std::string, LineFault> append(std::string_view bytes) {
        const std::size_t last = bytes.rfind('\n');
        if (last == std::string_view::npos) {
            if (rest_.size() + bytes.size() > maxLine) return unexpected(LineFault::tooLong);
            rest_ += bytes;
            return std::string();
        }
        if (rest_.size() + bytes.find('\n') > maxLine) return unexpected(LineFault::tooLong);
        std::string block = std::move(rest_);
        block += bytes.substr(0, last + 1);
        rest_ = bytes.substr(last + 1);
        return block;
    }
    /// The start of a line whose end has not come.
    const std::string& rest() const { return rest_; }

    /// Calls `use` with every line of a block that is not blank, trimmed.
    template <class Use>
    static void forEachLine(std::string_view block, Use use) {
        for (std::size_t start = 0; start < block.size();) {
            const std::size_t end = std::min(block.find('\n', start), block.size());
            const std::string_view line = trimmed(block.substr(start, end - start));
            if (!line.empty()) use(line);
            start = end + 1;
        }
    }

private:
    std::string rest_;
};
} // namespace snipwren
