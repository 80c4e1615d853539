#include "targets/CaptureTargetHints.h"

#include "targets/AlarmTarget.h"
#include "targets/CalcTarget.h"
#include "targets/CalendarTarget.h"
#include "targets/ClipboardTarget.h"
#include "targets/LocalNoteTarget.h"
#include "targets/LogseqTarget.h"
#include "targets/ObsidianTarget.h"
#include "targets/RemindersTarget.h"
#include "targets/SlackTarget.h"
#include "targets/TimerTarget.h"

namespace snipwren {
namespace {
struct Row {
    std::string_view commandName;
    const CaptureTargetHint& hint;
};

template <class Target>
constexpr Row rowOf() {
    return {Target::word, Target::words};
}

constexpr Row rows[] = {rowOf<LocalNoteTarget>(), rowOf<RemindersTarget>(), rowOf<ClipboardTarget>(),
                        rowOf<TimerTarget>(),     rowOf<CalcTarget>(),      rowOf<AlarmTarget>(),
                        rowOf<CalendarTarget>(),  rowOf<ObsidianTarget>(),  rowOf<SlackTarget>(),
                        rowOf<LogseqTarget>()};

const CaptureTargetHint* find(std::string_view commandName) {
    for (const Row& row : rows)
        if (row.commandName == commandName) return &row.hint;
    return nullptr;
}
} // namespace

std::vector<std::string_view> CaptureTargetHints::commandWords() {
    std::vector<std::string_view> words;
    for (const Row& row : rows) words.push_back(row.commandName);
    return words;
}

std::optional<CaptureTargetHints::Banner> CaptureTargetHints::banner(std::string_view commandName) {
    const CaptureTargetHint* hint = find(commandName);
    if (!hint) return std::nullopt;
    return Banner{hint->title, hint->subtitle};
}

std::string_view CaptureTargetHints::placeholder(std::string_view commandName, bool isSlackFiltering) {
    const CaptureTargetHint* hint = find(commandName);
    if (!hint) return CaptureTarget::generalPlaceholder;
    return isSlackFiltering && !hint->filterPlaceholder.empty() ? hint->filterPlaceholder : hint->placeholder;
}
} // namespace snipwren
