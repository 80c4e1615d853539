#include "targets/PickerFilter.h"

#include <algorithm>
#include <numeric>
#include <tuple>

#include "base/Text.h"

namespace snipwren {
namespace {
std::u32string folded(std::string_view text) {
    const std::string lower = lowercased(text);
    std::u32string scalars;
    for (std::size_t i = 0; i < lower.size();) scalars += nextScalar(lower, i);
    return scalars;
}

char sigilOf(std::string_view name) { return !name.empty() && (name[0] == '#' || name[0] == '@') ? name[0] : '\0'; }
} // namespace

void PickerFilter::setOptions(std::vector<PickerOption> options) {
    options_ = std::move(options);
    entries_.clear();
    entries_.reserve(options_.size());
    for (const PickerOption& option : options_) {
        const char sigil = sigilOf(option.displayName);
        entries_.push_back({sigil, folded(std::string_view(option.displayName).substr(sigil ? 1 : 0)), 0});
    }
    std::vector<std::size_t> sorted(entries_.size());
    std::iota(sorted.begin(), sorted.end(), std::size_t{0});
    std::stable_sort(sorted.begin(), sorted.end(),
                     [&](std::size_t x, std::size_t y) { return entries_[x].name < entries_[y].name; });
    for (std::size_t i = 0; i < sorted.size(); ++i) entries_[sorted[i]].order = i;
}

std::size_t PickerFilter::toleratedErrors(std::size_t length) { return length < 3 ? 0 : length < 6 ? 1 : 2; }

std::size_t PickerFilter::levenshtein(std::u32string_view left, std::u32string_view right, std::size_t limit) {
    const std::size_t difference = left.size() > right.size() ? left.size() - right.size() : right.size() - left.size();
    if (difference > limit) return difference;
    std::vector<std::size_t> row(right.size() + 1);
    for (std::size_t j = 0; j <= right.size(); ++j) row[j] = j;
    for (std::size_t i = 1; i <= left.size(); ++i) {
        std::size_t diagonal = row[0];
        std::size_t least = row[0] = i;
        for (std::size_t j = 1; j <= right.size(); ++j) {
            const std::size_t replaced = diagonal + (left[i - 1] == right[j - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, replaced});
            least = std::min(least, row[j]);
        }
        if (least > limit) return least;
    }
    return row[right.size()];
}

std::vector<PickerOption> PickerFilter::matching(std::string_view query) const {
    query = trimmed(query);
    const char sigil = sigilOf(query);
    const std::u32string wanted = folded(query.substr(sigil ? 1 : 0));
    const std::size_t tolerated = toleratedErrors(wanted.size());
    struct Hit {
        int rank = 0;
        std::size_t errors = 0;
        std::size_t index = 0;
    };
    std::vector<Hit> hits;
    const auto isKind = [&](const Entry& entry) { return !sigil || entry.sigil == sigil; };
    for (std::size_t i = 0; i < entries_.size(); ++i) {
        if (!isKind(entries_[i])) continue;
        const std::size_t at = entries_[i].name.find(wanted);
        if (at != std::u32string::npos) hits.push_back({at == 0 ? 0 : 1, 0, i});
    }
    // Where something contains the query it was typed right, and near misses would only lengthen the list.
    const bool wantsNearMisses = hits.empty() && tolerated > 0;
    for (std::size_t i = 0; wantsNearMisses && i < entries_.size(); ++i) {
        if (!isKind(entries_[i])) continue;
        // While a long name is being typed the query is compared with as much of it.
        const std::u32string_view name = entries_[i].name;
        const std::size_t errors = std::min(levenshtein(wanted, name, tolerated),
                                            levenshtein(wanted, name.substr(0, wanted.size()), tolerated));
        if (errors <= tolerated) hits.push_back({2, errors, i});
    }
    if (!wanted.empty())
        std::sort(hits.begin(), hits.end(), [&](const Hit& x, const Hit& y) {
            return std::tie(x.rank, x.errors, entries_[x.index].order)
                   < std::tie(y.rank, y.errors, entries_[y.index].order);
        });
    std::vector<PickerOption> options;
    options.reserve(hits.size());
    for (const Hit& hit : hits) options.push_back(options_[hit.index]);
    return options;
}
} // namespace snipwren
