#pragma once

#include <optional>

#include "base/Clock.h"
#include "base/Log.h"
#include "platform/FocusedField.h"
#include "platform/Geometry.h"

namespace snipwren {
/// Finds where on the screen the overlay opens: at the caret, else at the field, else at the pointer. Blocks for the
/// field's answers; runs off the main queue.
class CaretLocator {
public:
    CaretLocator(const ScreenGeometry& screens, const Clock& clock, Log& log)
        : screens_(screens),
          clock_(clock),
          log_(log) {}

    /// `element` may be none.
    Rect locate(FieldElement* element) const;

private:
    std::optional<Rect> caretBounds(FieldElement& element, const std::vector<Screen>& screens) const;

    const ScreenGeometry& screens_;
    const Clock& clock_;
    Log& log_;
};
} // namespace snipwren
