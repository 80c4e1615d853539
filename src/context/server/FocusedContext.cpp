#include "context/server/FocusedContext.h"

#include <algorithm>

#include "base/Text.h"
#include "base/UserDefaults.h"
#include "platform/FocusedField.h"
#include "platform/Workspace.h"
#include "store/PrivacyFirewall.h"

namespace snipwren {
namespace {
bool containsAny(const std::string& words, std::initializer_list<const char*> wanted) {
    return std::any_of(wanted.begin(), wanted.end(),
                       [&](const char* word) { return words.find(word) != std::string::npos; });
}
} // namespace

std::string FocusedContext::kindOf(const std::string& words) {
    if (containsAny(words, {"mail", "username", "login"})) return "email";
    if (containsAny(words, {"search", "find", "query"})) return "search";
    return "plainText";
}

bool FocusedContext::soundsSecret(const std::string& words) {
    return containsAny(words, {"secure", "password", "pin code"});
}

FocusSnapshot FocusedContext::read(bool includeText) {
    FocusSnapshot snapshot;
    const auto application = use_.workspace ? use_.workspace->frontmostApplication() : nullptr;
    if (application) snapshot.activeApplication = application->name;
    const auto element = use_.field ? use_.field->focusedElement() : nullptr;
    const auto field = element ? element->describe() : std::nullopt;
    if (!field) return snapshot;
    const std::string words = lowercased(field->label + '\n' + field->placeholder);
    snapshot.focusedContext = kindOf(words);
    if (application && use_.firewall.isAppExcluded(application->bundleId, application->identities)) return snapshot;
    snapshot.focusedLabel = field->label.empty() ? field->placeholder : field->label;
    snapshot.windowTitle = field->windowTitle;
    if (!includeText || !use_.defaults.boolean(allowTextKey).value_or(false)) return snapshot;
    if (field->isSecure || soundsSecret(words) || (use_.workspace && use_.workspace->isSecureInputEnabled()))
        return snapshot;
    auto text = element->value();
    const std::string bundleId = application ? application->bundleId : std::string();
    if (text && use_.firewall.isSafeToProcess(*text, bundleId, field->role)) snapshot.text = std::move(text);
    return snapshot;
}
} // namespace snipwren
