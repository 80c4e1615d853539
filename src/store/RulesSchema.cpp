#include "store/RulesSchema.h"

namespace snipwren {
namespace {
constexpr const char* tableStatements[] = {
    R"(CREATE TABLE IF NOT EXISTS rules_config (
    id TEXT PRIMARY KEY,
    name TEXT NOT NULL,
    pattern TEXT NOT NULL,
    category TEXT NOT NULL,
    description TEXT NOT NULL,
    severity TEXT NOT NULL,
    is_enabled INTEGER DEFAULT 1
);)",
    R"(CREATE TABLE IF NOT EXISTS captured_texts (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    raw_text TEXT NOT NULL,
    app_bundle_id TEXT NOT NULL,
    domain TEXT,
    timestamp REAL NOT NULL
);)",
    R"(CREATE TABLE IF NOT EXISTS skeletons (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    raw_text_id INTEGER NOT NULL,
    skeleton_text TEXT NOT NULL,
    occurrence_count INTEGER DEFAULT 1,
    last_seen REAL NOT NULL,
    FOREIGN KEY(raw_text_id) REFERENCES captured_texts(id) ON DELETE CASCADE
);)",
    R"(CREATE TABLE IF NOT EXISTS exclusion_list (
    id TEXT PRIMARY KEY,
    category TEXT NOT NULL,
    reasoning TEXT
);)",
    R"(CREATE TABLE IF NOT EXISTS field_memory (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    field_context TEXT NOT NULL,
    app_bundle_id TEXT NOT NULL,
    domain TEXT,
    field_label TEXT,
    value_hash TEXT NOT NULL,
    value_encrypted TEXT NOT NULL,
    frequency INTEGER DEFAULT 1,
    last_used REAL NOT NULL,
    UNIQUE(field_context, app_bundle_id, domain, field_label, value_hash)
);)",
    R"(CREATE TABLE IF NOT EXISTS mcp_context (
    id INTEGER PRIMARY KEY,
    project TEXT,
    topic TEXT,
    related_notes TEXT,
    active_decision TEXT,
    metadata TEXT,
    timestamp REAL NOT NULL
);)",
    R"(CREATE TABLE IF NOT EXISTS mcp_knowledge (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    key TEXT NOT NULL UNIQUE,
    value_encrypted TEXT NOT NULL,
    context TEXT NOT NULL,
    tags TEXT,
    timestamp REAL NOT NULL
);)",
    R"(CREATE TABLE IF NOT EXISTS kg_nodes (
    id TEXT PRIMARY KEY,
    type TEXT NOT NULL,
    name TEXT NOT NULL,
    properties TEXT,
    created_at REAL NOT NULL,
    updated_at REAL NOT NULL
);)",
    R"(CREATE TABLE IF NOT EXISTS kg_edges (
    id TEXT PRIMARY KEY,
    source TEXT NOT NULL,
    target TEXT NOT NULL,
    relationship TEXT NOT NULL,
    properties TEXT,
    created_at REAL NOT NULL,
    FOREIGN KEY(source) REFERENCES kg_nodes(id) ON DELETE CASCADE,
    FOREIGN KEY(target) REFERENCES kg_nodes(id) ON DELETE CASCADE
);)",
    R"(CREATE TABLE IF NOT EXISTS sync_metadata (
    key TEXT PRIMARY KEY,
    value TEXT NOT NULL,
    updated_at REAL NOT NULL
);)",
    R"(CREATE TABLE IF NOT EXISTS exclusion_identities (
    exclusion_id TEXT NOT NULL,
    kind TEXT NOT NULL,
    identity TEXT NOT NULL,
    PRIMARY KEY(exclusion_id, kind, identity)
);)"};

// M003 looks ahead after a greedy run and M017 is an alternation without parentheses: both are meant to match as broadly
// as they do.
constexpr RulesSchema::Rule seededRules[] = {
    {"M001", "Duplicate Words", R"(\b([a-zA-Z]+)\s+\1\b)", "grammar", "Consecutive duplicate words typed by mistake.",
     "warning"},
    {"M002", "Missing SQL Delete WHERE", R"((?i)\bDELETE\s+FROM\s+\w+\b(?!.*\bWHERE\b))", "sql",
     "Delete command executed without a protective WHERE clause.", "critical"},
    {"M003", "Missing SQL Update WHERE", R"((?i)\bUPDATE\s+\w+\s+SET\s+\w+\s*=[^;]+(?!.*\bWHERE\b))", "sql",
     "Update command executed without a protective WHERE clause.", "critical"},
    {"M004", "Destructive CLI Command", R"(\b(?:rm\s+-rf\s+(?:\*|/)|chmod\s+(?:-R\s+)?777|mkfs\.[a-z0-9]+)\b)",
     "terminal", "Execution of high-cost destructive command.", "critical"},
    {"M005", "Exposed Auth Token / Secret", R"(\b(?:sk_live_[0-9a-zA-Z]{24}|xox[baprs]-[0-9a-zA-Z\-]+)\b)", "security",
     "API key or authenticating secret exposed.", "critical"},
    {"M006", "Exposed AWS Access Key", R"(\bAKIA[0-9A-Z]{16}\b)", "security", "AWS Access Key ID exposed.", "critical"},
    {"M007", "Exposed SSH Private Key", "-----BEGIN [A-Z ]+ PRIVATE KEY-----", "security",
     "SSH private key contents detected.", "critical"},
    {"M008", "Broken Boolean Assignment", R"(\bif\s*\([^=]+=[^=][^)]*\))", "syntax",
     "Accidental single-equals assignment inside variable check condition.", "warning"},
    {"M009", "Semicolon After Conditional", R"(\b(?:if|while|for)\s*\([^)]*\)\s*;)", "syntax",
     "Accidental terminal semicolon ending a loop or conditional expression.", "warning"},
    {"M010", "Git Conflict Markers", "^(?:<<<<<<<|=======|>>>>>>>)", "git",
     "Unresolved merge clash marker left inside file buffer.", "warning"},
    {"M011", "CLI Plaintext Password", R"(\b(?:psql|mysql|mongo|redis-cli|pg_dump|mysqladmin)\b.*\b-p\s*[^\s]+)",
     "devops", "Plaintext password entered directly inside terminal command line.", "critical"},
    {"M012", "Terraform Destroy", R"(\bterraform\s+destroy\b(?!.*-auto-approve))", "devops",
     "Terraform destroy execution proposed without an automatic approval safety flag.", "critical"},
    {"M013", "K8s Namespace Missing", R"(\bkubectl\s+delete\s+\w+\s+\S+\b(?!.*\s+--namespace))", "devops",
     "Kubernetes delete command specified without explicitly restricting the namespace.", "critical"},
    {"M014", "Docker Force Removal", R"(\bdocker\s+(?:rm|rmi|volume\s+rm)\s+-f\b)", "devops",
     "Docker resources deleted forcefully bypassing safety checks.", "warning"},
    {"M015", "Git Force Push", R"(\bgit\s+push\s+.*\b(?:main|master)\b.*\b(?:-f|--force)\b)", "devops",
     "Force-pushing directly to a protected branch (main/master) is highly dangerous.", "critical"},
    {"M016", "SSH Keygen Empty Passphrase", R"re(\bssh-keygen\b.*\b-N\s*"")re", "devops",
     "SSH key generated with an empty passphrase leaves the credentials insecure.", "warning"},
    {"M017", "AWS CLI Hardcoded Credentials", R"(\baws\s+.*\b--aws-access-key-id\s+\S+|--aws-secret-access-key\s+\S+)",
     "devops", "Hardcoded AWS Access Credentials entered on CLI.", "critical"},
    {"M018", "Export Secret Variable", R"(\bexport\s+(?:SECRET|TOKEN|PASSWORD|API_KEY|AUTH_TOKEN)\s*=\s*\S+)", "devops",
     "Export of plaintext authenticating credential/secret in terminal.", "warning"},
};

constexpr RulesSchema::Exclusion seededExclusions[] = {
    {"com.apple.keychainaccess", "System Keychain Utility"},
    {"com.1password.1password", "1Password Desktop App"},
    {"com.bitwarden.desktop", "Bitwarden Desktop client"},
    {"org.keepassxc.keepassxc", "KeePassXC Password Vault"},
    {"com.dashlane.dashlanedesktop", "Dashlane Client"},
    {"com.lastpass.LastPass", "LastPass app"},
    {"com.msecure.maccore", "mSecure Vault"},
};

// A program started from a package, a Flatpak or a snap goes by different names. Where a vendor has no Linux program its
// name is kept for the one that may come and for its command-line client. The system's own keychain has several programs
// here: the two desktops' key managers and the prompts that ask for a key's password.
constexpr RulesSchema::Identity seededIdentities[] = {
    {"com.apple.keychainaccess", "desktop", "org.gnome.seahorse.Application"},
    {"com.apple.keychainaccess", "wmclass", "seahorse"},
    {"com.apple.keychainaccess", "executable", "seahorse"},
    {"com.apple.keychainaccess", "desktop", "org.kde.kwalletmanager5"},
    {"com.apple.keychainaccess", "desktop", "org.kde.kwalletmanager"},
    {"com.apple.keychainaccess", "wmclass", "kwalletmanager5"},
    {"com.apple.keychainaccess", "wmclass", "kwalletmanager"},
    {"com.apple.keychainaccess", "executable", "kwalletmanager5"},
    {"com.apple.keychainaccess", "executable", "kwalletmanager"},
    {"com.apple.keychainaccess", "executable", "kwalletd5"},
    {"com.apple.keychainaccess", "executable", "kwalletd6"},
    {"com.apple.keychainaccess", "wmclass", "gcr-prompter"},
    {"com.apple.keychainaccess", "executable", "gcr-prompter"},
    {"com.apple.keychainaccess", "executable", "gcr4-ssh-askpass"},
    {"com.apple.keychainaccess", "executable", "pinentry"},
    {"com.apple.keychainaccess", "executable", "pinentry-gnome3"},
    {"com.apple.keychainaccess", "executable", "pinentry-gtk-2"},
    {"com.apple.keychainaccess", "executable", "pinentry-qt"},
    {"com.1password.1password", "desktop", "1password"},
    {"com.1password.1password", "wmclass", "1password"},
    {"com.1password.1password", "executable", "1password"},
    {"com.1password.1password", "flatpak", "com.onepassword.OnePassword"},
    {"com.bitwarden.desktop", "desktop", "bitwarden"},
    {"com.bitwarden.desktop", "desktop", "bitwarden_bitwarden"},
    {"com.bitwarden.desktop", "wmclass", "bitwarden"},
    {"com.bitwarden.desktop", "executable", "bitwarden"},
    {"com.bitwarden.desktop", "executable", "bitwarden-app"},
    {"com.bitwarden.desktop", "executable", "bitwarden-desktop"},
    {"com.bitwarden.desktop", "flatpak", "com.bitwarden.desktop"},
    {"org.keepassxc.keepassxc", "desktop", "org.keepassxc.KeePassXC"},
    {"org.keepassxc.keepassxc", "desktop", "keepassxc_keepassxc"},
    {"org.keepassxc.keepassxc", "wmclass", "keepassxc"},
    {"org.keepassxc.keepassxc", "executable", "keepassxc"},
    {"org.keepassxc.keepassxc", "flatpak", "org.keepassxc.KeePassXC"},
    {"com.dashlane.dashlanedesktop", "desktop", "dashlane"},
    {"com.dashlane.dashlanedesktop", "wmclass", "dashlane"},
    {"com.dashlane.dashlanedesktop", "executable", "dashlane"},
    {"com.dashlane.dashlanedesktop", "executable", "dcli"},
    {"com.lastpass.LastPass", "desktop", "lastpass"},
    {"com.lastpass.LastPass", "wmclass", "lastpass"},
    {"com.lastpass.LastPass", "executable", "lastpass"},
    {"com.lastpass.LastPass", "executable", "lpass"},
    {"com.msecure.maccore", "desktop", "msecure"},
    {"com.msecure.maccore", "wmclass", "msecure"},
    {"com.msecure.maccore", "executable", "msecure"},
};
} // namespace

std::span<const char* const> RulesSchema::tables() { return tableStatements; }
std::span<const RulesSchema::Rule> RulesSchema::rules() { return seededRules; }
std::span<const RulesSchema::Exclusion> RulesSchema::exclusions() { return seededExclusions; }
std::span<const RulesSchema::Identity> RulesSchema::identities() { return seededIdentities; }
} // namespace snipwren
