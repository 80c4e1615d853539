#pragma once

#include <string>

#include "platform/FocusedField.h"

namespace snipwren {
/// Identifies a text field across focus changes: equal when all seven are equal.
struct FocusFingerprint {
    std::string bundleId;
    std::string role;
    std::string identifier;
    std::string label;
    std::string windowTitle;
    int width = 0;
    int height = 0;

    static FocusFingerprint of(std::string bundleId, const FieldDescription& field) {
        return {std::move(bundleId), field.role,  field.identifier, field.label,
                field.windowTitle,   field.width, field.height};
    }
    /// Menus take the focus for a moment and are no place that one types in.
    bool isTransient() const { return asciiLowercased(role).find("menu") != std::string::npos; }
    friend bool operator==(const FocusFingerprint&, const FocusFingerprint&) = default;
};
} // namespace snipwren
