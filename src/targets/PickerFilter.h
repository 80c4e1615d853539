#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "capture/CaptureTarget.h"

namespace snipwren {
/// Narrows a picker's options while the user types: first the names that begin with the query, then those that contain
/// it; when there is neither, near misses. Case does not matter; "#" or "@" before the query keeps channels or users only.
class PickerFilter {
public:
    void setOptions(std::vector<PickerOption> options);
    /// Best first; all options, in their own order, for an empty query.
    std::vector<PickerOption> matching(std::string_view query) const;

    /// How many characters are to be inserted, removed or replaced. Answers any number above `limit` when it is more.
    static std::size_t levenshtein(std::u32string_view left, std::u32string_view right, std::size_t limit);
    /// The most typing errors that a query of this many characters may have.
    static std::size_t toleratedErrors(std::size_t length);

private:
    struct Entry {
        /// The display name's first character when it is "#" or "@".
        char sigil = 0;
        std::u32string name;
        /// The place among all names in the order of their letters.
        std::size_t order = 0;
    };
    std::vector<PickerOption> options_;
    std::vector<Entry> entries_; // In lower case, made once: the query changes with every keystroke.
};
} // namespace snipwren
