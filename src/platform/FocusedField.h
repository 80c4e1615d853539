#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "base/Text.h"
#include "platform/Geometry.h"

namespace snipwren {
/// What an edit of another program's field came to. `unknown`: the request was sent and not answered in time, so it may
/// still take effect; whoever asked must not do the same work in another way.
enum class EditOutcome { applied, refused, unknown };

/// What identifies and describes a field, read in one go.
struct FieldDescription {
    std::string role;
    std::string identifier;
    std::string label;
    std::string placeholder;
    std::string windowTitle;
    int width = 0;
    int height = 0;
    bool isSecure = false;
    bool isEditable = true;
};

/// One text field of another program. Every call may fail, takes bounded time (about 20 ms) and is blocking; any thread.
class FieldElement {
public:
    virtual ~FieldElement() = default;
    virtual std::optional<FieldDescription> describe() = 0;
    virtual std::optional<std::string> value() = 0;
    /// The caret is a range of no length.
    virtual std::optional<Utf16Range> selectedRange() = 0;
    virtual std::optional<std::string> selectedText() = 0;
    /// Selects the range and replaces it; success is what the program claims, so read back.
    virtual EditOutcome replaceRange(const Utf16Range& range, const std::string& text) = 0;
    virtual EditOutcome setValue(const std::string& value) = 0;
    virtual std::optional<Rect> boundsOf(const Utf16Range& range) = 0;
    virtual std::optional<Rect> frame() = 0;
};

/// Learns that the keyboard went to another field (or window without one: an empty description). Called on the thread
/// that noticed, one call at a time; returns fast.
using FocusObserver = std::function<void(const std::string& bundleId, const FieldDescription& field)>;

/// The field that has the keyboard. Any thread.
class FocusedField {
public:
    virtual ~FocusedField() = default;
    /// None when nothing is focused, the program does not answer, or it is not accessible.
    virtual std::shared_ptr<FieldElement> focusedElement() = 0;
    /// One observer at a time; an empty one ends the observation, and no call comes after that.
    virtual void setFocusObserver(FocusObserver observer) = 0;
};
} // namespace snipwren
