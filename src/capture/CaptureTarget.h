#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "base/Clock.h"
#include "base/Result.h"
#include "capture/CaptureFailureGuide.h"

namespace snipwren {
/// Why a capture did not reach its target: the domain and code of the component, and the sentence for the user.
struct CaptureError {
    std::string domain;
    int code = 0;
    std::string description;
    friend bool operator==(const CaptureError&, const CaptureError&) = default;
};

/// One choice of a target's picker. Equal when both texts are.
struct PickerOption {
    /// Stable identifier of the choice (a channel or user identifier).
    std::string id;
    /// What the list shows and the filter compares ("#general", "@ana").
    std::string displayName;
    friend bool operator==(const PickerOption&, const PickerOption&) = default;
};

/// The words that the overlay shows for a target.
struct CaptureTargetHint {
    std::string_view title;
    std::string_view subtitle;
    std::string_view placeholder;
    /// While the picker's filter is typed; empty: the placeholder.
    std::string_view filterPlaceholder;
};

/// What a delivered capture left: the words for the user, and what undoing it needs.
struct CaptureReceipt {
    /// A short sentence; empty when there is nothing to tell (blank text).
    std::string sentence;
    /// A file, or an application, that the user can go to.
    std::optional<std::string> revealPath;
    /// Name of a symbol.
    std::optional<std::string> systemImage;
    /// The capture counts among the day's open items.
    bool parksLoop = false;
    /// What undo() needs, in the target's own form; empty where a capture cannot be taken back. It stands in the journal,
    /// so it holds nothing that the capture itself does not.
    std::string undo;
    friend bool operator==(const CaptureReceipt&, const CaptureReceipt&) = default;
};

/// One attempt at delivering one confirmed capture. An attempt may follow another that was cut off (the program was
/// killed, the power failed), of which nobody knows whether it arrived.
class CaptureAttempt {
public:
    virtual ~CaptureAttempt() = default;
    /// A lower-case UUID, the same for every attempt at one capture: the identifier of what is made where the target
    /// takes one.
    virtual const std::string& captureId() const = 0;
    /// When Return was pressed. Words about time ("tomorrow", "25m") are read as of this moment.
    virtual TimePoint confirmedAt() const = 0;
    virtual const std::stop_token& stop() const = 0;
    /// What the last attempt noted before it acted; none for a first attempt.
    virtual const std::optional<std::string>& earlierNote() const = 0;
    /// Writes down, flushed to the disk before it returns, what a later attempt needs to see whether this one arrived.
    /// When it cannot, the target does not act.
    virtual Result<void, CaptureError> note(const std::string& evidence) = 0;
};

/// A destination of captures, and everything that concerns it alone. One long-lived object each; commandName and
/// needsPicker never change. pickerOptions, readiness, send and undo block and run off the main queue (send and undo one
/// at a time, on the target's lane); they end early, with an error or what they have, when the token is stopped.
class CaptureTarget {
public:
    virtual ~CaptureTarget() = default;
    /// The command word in lower case, without the slashes.
    virtual const std::string& commandName() const = 0;
    /// None: the overlay shows its general words.
    virtual const CaptureTargetHint* hint() const { return nullptr; }

    static constexpr std::string_view generalPlaceholder = "Type message to capture...";
    /// `isFiltering`: the picker's filter is being typed.
    std::string_view placeholder(bool isFiltering) const;

    virtual bool needsPicker() const { return false; }
    /// Never fails: a target that cannot load its choices returns those it has.
    virtual std::vector<PickerOption> pickerOptions(std::stop_token stop);
    /// The options that match what was typed into the picker, best first. Main queue; answers from what is loaded.
    virtual std::vector<PickerOption> filteredOptions(const std::string& query) const;

    /// What Return would do with the text; none when there is nothing to show. Main queue, on every key.
    virtual std::optional<std::string> preview(const std::string& text) const;
    /// The preview is the result itself, as a calculator's is.
    virtual bool previewIsResult() const { return false; }

    /// What has to be set up before a capture can arrive at all (a folder is missing, a token): the sentence for the
    /// user, shown instead of the overlay. None: ready.
    virtual std::optional<std::string> readiness() const;
    /// The next step to offer after a failure with this description.
    virtual CaptureFailureGuide failureGuide(std::string_view detail) const;

    /// Delivers for good: what was delivered is on the disk, or with the service, when this returns.
    virtual Result<CaptureReceipt, CaptureError>
    send(const std::string& text, const std::optional<PickerOption>& selectedOption, CaptureAttempt& attempt) = 0;
    /// After this long in the lane or in send() the text is offered for elsewhere.
    virtual std::chrono::seconds patience() const { return std::chrono::seconds(20); }
    /// Whether a capture that a program's end cut off is still to be delivered `age` after its Return; else it goes to
    /// the recovery log.
    virtual bool deliversAfter(Duration age) const;

    /// Takes a delivered capture back; `undo` is the receipt's. The sentence for the user. Never takes back anything but
    /// that capture: what has been changed since stays.
    virtual Result<std::string, CaptureError> undo(const std::string& text, const std::string& undo,
                                                   std::stop_token stop);
};
} // namespace snipwren

template <>
struct std::hash<snipwren::PickerOption> {
    std::size_t operator()(const snipwren::PickerOption& option) const noexcept;
};
