#pragma once

#include <optional>
#include <string>

namespace snipwren {
class FocusedField;
class PrivacyFirewall;
class UserDefaults;
class Workspace;

/// What the user is doing at this moment, as tools are told.
struct FocusSnapshot {
    std::string activeApplication;
    /// "email", "search", "plainText", or "unknown" when no field has the keyboard.
    std::string focusedContext = "unknown";
    std::string focusedLabel;
    std::string windowTitle;
    /// Only when asked for and allowed.
    std::optional<std::string> text;
};

/// Reads the live focus for tools. The content of a field leaves only when the user has switched that on, the field does
/// not look like one for secrets, and the privacy firewall lets the text pass; of an excluded application nothing but
/// its name is told. Blocking; any thread.
class FocusedContext {
public:
    /// The setting behind which field contents are told at all; off unless set.
    static constexpr const char* allowTextKey = "mcpAllowsFocusedText";
    /// The kind of field that its lower-cased words speak of.
    static std::string kindOf(const std::string& words);
    static bool soundsSecret(const std::string& words);

    struct Dependencies {
        /// Null where there is no desktop.
        FocusedField* field = nullptr;
        const Workspace* workspace = nullptr;
        PrivacyFirewall& firewall;
        const UserDefaults& defaults;
    };
    explicit FocusedContext(const Dependencies& dependencies) : use_(dependencies) {}
    FocusSnapshot read(bool includeText);

private:
    const Dependencies use_;
};
} // namespace snipwren
