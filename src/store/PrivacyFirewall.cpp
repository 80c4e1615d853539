#include "store/PrivacyFirewall.h"

#include <algorithm>

#include <unicode/uchar.h>
#include <unicode/utf16.h>

#include "base/SerialQueue.h"
#include "base/Text.h"
#include "store/DatabaseManager.h"
#include "store/RulesSchema.h"

namespace snipwren {
namespace {
constexpr std::size_t minTokenLength = 20;
constexpr std::size_t minCardDigits = 13;
constexpr std::size_t maxCardDigits = 19;

struct CredentialPattern {
    const char* pattern;
    const char* hint;
};
constexpr CredentialPattern credentialPatterns[] = {
    {R"(\bAKIA[0-9A-Z]{16}\b)", "AKIA"},
    {R"(\bsk_live_[0-9a-zA-Z]{24}\b)", "sk_live_"},
    {R"(\bxox[baprs]-[0-9a-zA-Z\-]+\b)", "xox"},
    {R"(mongodb\+srv:\/\/[a-zA-Z0-9_\-]+:[a-zA-Z0-9_\-]+@)", "mongodb+srv://"},
    {R"(postgres:\/\/[a-zA-Z0-9_\-]+:[a-zA-Z0-9_\-]+@)", "postgres://"},
};

constexpr bool isBetween(char letter, char first, char last) { return letter >= first && letter <= last; }
constexpr bool isDigit(char letter) { return isBetween(letter, '0', '9'); }
constexpr char folded(char letter) {
    return isBetween(letter, 'A', 'Z') ? static_cast<char>(letter - 'A' + 'a') : letter;
}

/// A token needs a run of this length; the search for one is much dearer than this look.
bool mayHoldToken(std::string_view text) {
    std::size_t run = 0;
    for (const char letter : text) {
        const bool isTokenLetter =
            isDigit(letter) || isBetween(folded(letter), 'a', 'z') || letter == '+' || letter == '/' || letter == '=';
        run = isTokenLetter ? run + 1 : 0;
        if (run == minTokenLength) return true;
    }
    return false;
}

/// Digits of other scripts count, too; each is more than one byte and begins with one of 0xC0 or above.
bool mayHoldCard(std::string_view text) {
    const auto count = std::ranges::count_if(
        text, [](char letter) { return isDigit(letter) || static_cast<unsigned char>(letter) >= 0xC0; });
    return static_cast<std::size_t>(count) >= minCardDigits;
}

/// The check digit rule of payment cards; the digits from the last to the first.
bool passesLuhn(const std::vector<int>& digits) {
    int sum = 0;
    for (std::size_t position = 0; position < digits.size(); ++position) {
        int value = digits[digits.size() - 1 - position];
        if (position % 2 == 1) value = value * 2 > 9 ? value * 2 - 9 : value * 2;
        sum += value;
    }
    return sum % 10 == 0;
}

std::optional<Regex> compiled(const char* pattern) {
    auto regex = Regex::compile(pattern);
    return regex ? std::optional(std::move(*regex)) : std::nullopt;
}
} // namespace

std::size_t PrivacyFirewall::Folded::operator()(std::string_view text) const {
    std::size_t hash = 14695981039346656037u; // FNV-1a.
    for (const char letter : text) hash = (hash ^ static_cast<unsigned char>(folded(letter))) * 1099511628211u;
    return hash;
}

bool PrivacyFirewall::Folded::operator()(std::string_view one, std::string_view other) const {
    return std::ranges::equal(one, other, {}, folded, folded);
}

PrivacyFirewall::PrivacyFirewall(const Dependencies& dependencies)
    : database_(dependencies.database),
      clock_(dependencies.clock),
      refreshQueue_(dependencies.refreshQueue),
      card_(compiled(R"(\b(?:\d[\s-]*){13,19}\b)")),
      token_(compiled(R"(\b[A-Za-z0-9+/=]{20,}\b)")) {
    for (const auto& [pattern, hint] : credentialPatterns)
        if (auto regex = Regex::compile(pattern)) credentials_.push_back({hint, std::move(*regex)});
}

bool PrivacyFirewall::isSafeToProcess(std::string_view text, std::string_view appBundleId,
                                      const std::optional<std::string>& fieldType) {
    if (fieldType
        && (fieldType->find("Password") != std::string::npos || fieldType->find("Secure") != std::string::npos))
        return false;
    return !isAppExcluded(appBundleId) && !carriesCredentials(text);
}

bool PrivacyFirewall::carriesCredentials(std::string_view text) const {
    const auto holds = [&](std::string_view what) { return text.find(what) != std::string_view::npos; };
    if (holds("-----BEGIN") && holds("PRIVATE KEY-----")) return true;
    std::u16string wide; // Made only for text that may match something.
    const auto widened = [&]() -> std::u16string_view {
        if (wide.empty()) wide = toUtf16(text);
        return wide;
    };
    for (const Credential& credential : credentials_)
        if (holds(credential.hint) && credential.pattern.contains(widened()).value_or(true)) return true;
    if (mayHoldToken(text) && hasHighEntropyToken(widened())) return true;
    return mayHoldCard(text) && hasCardNumber(widened());
}

bool PrivacyFirewall::hasHighEntropyToken(std::u16string_view text) const {
    if (!token_) return false;
    const auto matches = token_->allMatches(text);
    if (!matches) return true;
    return std::ranges::any_of(*matches, [&](const RegexMatch& match) {
        const std::u16string_view token = text.substr(match.start(), match.length());
        const auto has = [&](char16_t first, char16_t last) {
            return std::ranges::any_of(token, [&](char16_t unit) { return unit >= first && unit <= last; });
        };
        return has(u'a', u'z') && has(u'A', u'Z') && has(u'0', u'9');
    });
}

bool PrivacyFirewall::hasCardNumber(std::u16string_view text) const {
    if (!card_) return false;
    const auto matches = card_->allMatches(text);
    if (!matches) return true;
    return std::ranges::any_of(*matches, [&](const RegexMatch& match) {
        std::vector<int> digits;
        const std::size_t end = match.start() + match.length();
        for (std::size_t i = match.start(); i < end;) {
            UChar32 scalar = 0;
            U16_NEXT(text.data(), i, end, scalar);
            if (u_isdigit(scalar)) digits.push_back(u_charDigitValue(scalar));
        }
        return digits.size() >= minCardDigits && digits.size() <= maxCardDigits && passesLuhn(digits);
    });
}

bool PrivacyFirewall::isAppExcluded(std::string_view bundleId) { return isAppExcluded(bundleId, {}); }

bool PrivacyFirewall::isAppExcluded(std::string_view bundleId, std::span<const std::string> otherNames) {
    scheduleRefreshIfNeeded();
    return isCached(bundleId)
           || std::ranges::any_of(otherNames, [this](const std::string& name) { return isCached(name); });
}

bool PrivacyFirewall::isCached(std::string_view name) {
    // A program may be known by its path, a desktop file by its name with the ending.
    if (const std::size_t slash = name.rfind('/'); slash != std::string_view::npos) name.remove_prefix(slash + 1);
    constexpr std::string_view ending = ".desktop";
    const bool hasEnding = name.size() > ending.size() && name.ends_with(ending);
    const std::string_view bare = hasEnding ? name.substr(0, name.size() - ending.size()) : name;
    const bool isAscii = std::ranges::none_of(name, [](char letter) { return static_cast<signed char>(letter) < 0; });
    const std::string lower = isAscii ? std::string() : lowercased(name);
    const std::lock_guard lock(mutex_);
    if (!isAscii) return excludedAppsCache_.contains(lower);
    // The name as it stands, too: the identifier of one application does end so ("com.bitwarden.desktop").
    return excludedAppsCache_.contains(name) || (hasEnding && excludedAppsCache_.contains(bare));
}

void PrivacyFirewall::scheduleRefreshIfNeeded() {
    {
        const std::lock_guard lock(mutex_);
        if (isRefreshing_ || (lastCacheUpdate_ && clock_.steadyNow() - *lastCacheUpdate_ <= cacheTtl)) return;
        isRefreshing_ = true;
    }
    refreshQueue_.async([this] { refreshExcludedAppsCache(); });
}

void PrivacyFirewall::primeExcludedApps() { refreshExcludedAppsCache(); }

void PrivacyFirewall::refreshExcludedAppsCache() {
    auto names = excludedNames();
    const std::lock_guard lock(mutex_);
    if (!names && excludedAppsCache_.empty()) {
        // Without a database the password managers are protected all the same.
        names.emplace();
        for (const auto& exclusion : RulesSchema::exclusions()) names->insert(lowercased(exclusion.id));
        for (const auto& identity : RulesSchema::identities()) names->insert(lowercased(identity.identity));
    }
    if (names) excludedAppsCache_.swap(*names); // What was known stays when the database does not answer.
    lastCacheUpdate_ = clock_.steadyNow();
    isRefreshing_ = false;
}

std::optional<PrivacyFirewall::Names> PrivacyFirewall::excludedNames() {
    std::optional<Names> names;
    database_.performRaw([&](Database& database) {
        auto statement = database.prepare("SELECT id FROM exclusion_list WHERE category = 'app';");
        if (!statement) return;
        const auto ids = statement->rows([](Statement& row) { return row.text(0); });
        if (!ids) return;
        names.emplace();
        for (const std::string& id : *ids) names->insert(lowercased(id));
    });
    if (names)
        for (const std::string& identity : database_.fetchExclusionIdentities()) names->insert(lowercased(identity));
    return names;
}
} // namespace snipwren
