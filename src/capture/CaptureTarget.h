#pragma once

#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "base/Result.h"

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

/// A destination of captures. One long-lived object each; commandName and needsPicker never change.
/// pickerOptions and send block: the router runs them on its send queue, several at once. They end early, with an error
/// or what they have, when the token is stopped.
class CaptureTarget {
public:
    virtual ~CaptureTarget() = default;
    /// The command word in lower case, without the slashes.
    virtual const std::string& commandName() const = 0;
    virtual bool needsPicker() const { return false; }
    /// Never fails: a target that cannot load its choices returns those it has.
    virtual std::vector<PickerOption> pickerOptions(std::stop_token stop);
    /// The options that match what was typed into the picker, best first. Main queue; answers from what is loaded.
    virtual std::vector<PickerOption> filteredOptions(const std::string& query) const;
    virtual Result<void, CaptureError> send(const std::string& text, const std::optional<PickerOption>& selectedOption,
                                            std::stop_token stop) = 0;
};
} // namespace snipwren

template <>
struct std::hash<snipwren::PickerOption> {
    std::size_t operator()(const snipwren::PickerOption& option) const noexcept;
};
