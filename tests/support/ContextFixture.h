#pragma once

#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "base/FileIO.h"
#include "base/Log.h"
#include "base/ManualQueue.h"
#include "base/NotificationCenter.h"
#include "base/Paths.h"
#include "base/Random.h"
#include "base/UserDefaults.h"
#include "context/graph/KnowledgeGraph.h"
#include "context/graph/MemorySealer.h"
#include "context/server/FocusedContext.h"
#include "context/server/MCPHubManager.h"
#include "context/server/MCPSuggestionQueue.h"
#include "platform/FocusedField.h"
#include "store/DatabaseManager.h"
#include "store/KeychainHelper.h"
#include "store/PrivacyFirewall.h"
#include "support/FakeDesktop.h"
#include "support/FakeLegacyKeychain.h"
#include "support/TemporaryFolder.h"

namespace snipwren {
/// A field that shows what it was given.
class FakeFocusedField final : public FocusedField {
public:
    void show(FieldDescription description, std::string value) {
        element_ = std::make_shared<Element>(std::move(description), std::move(value));
    }
    std::shared_ptr<FieldElement> focusedElement() override { return element_; }
    void setFocusObserver(FocusObserver) override {}

private:
    class Element final : public FieldElement {
    public:
        Element(FieldDescription description, std::string value)
            : description_(std::move(description)),
              value_(std::move(value)) {}
        std::optional<FieldDescription> describe() override { return description_; }
        std::optional<std::string> value() override { return value_; }
        std::optional<Utf16Range> selectedRange() override { return std::nullopt; }
        std::optional<std::string> selectedText() override { return std::nullopt; }
        EditOutcome replaceRange(const Utf16Range&, const std::string&) override { return EditOutcome::refused; }
        EditOutcome setValue(const std::string&) override { return EditOutcome::refused; }
        std::optional<Rect> boundsOf(const Utf16Range&) override { return std::nullopt; }
        std::optional<Rect> frame() override { return std::nullopt; }

    private:
        FieldDescription description_;
        std::string value_;
    };
    std::shared_ptr<Element> element_;
};

/// Everything behind the context server's methods, over a real database in a folder of its own. The clock stands at 1970.
class ContextFixture : public testing::Test {
protected:
    ContextFixture() {
        database.open();
        firewall.primeExcludedApps();
    }

    TemporaryFolder folder;
    PosixFileIO posix;
    FileIO& files = posix;
    Paths paths = Paths::under(folder.path());
    ManualClock clock{TimePoint{}};
    MemoryLog log;
    SystemRandom random;
    FakeLegacyKeychain keychain;
    UserDefaults defaults{files, paths.defaultsFile};
    ManualQueue queue{DatabaseManager::queueLabel, clock};
    ManualQueue secretsQueue{KeychainHelper::queueLabel, clock};
    ManualQueue hubQueue{MCPHubManager::queueLabel, clock};
    ManualQueue suggestionQueue{MCPSuggestionQueue::queueLabel, clock};
    ManualQueue mainQueue{"main", clock};
    NotificationCenter notifications{mainQueue};
    DatabaseManager database{
        {.files = files, .paths = paths, .clock = clock, .defaults = defaults, .queue = queue, .log = log}};
    KeychainHelper secrets{
        {.files = files, .paths = paths, .queue = secretsQueue, .log = log, .keychain = keychain, .testMode = true}};
    ManualQueue refreshQueue{"refresh", clock};
    PrivacyFirewall firewall{{.database = database, .clock = clock, .refreshQueue = refreshQueue}};
    FakeFocusedField focusedField;
    FakeWorkspace workspace;
    MCPSuggestionQueue suggestions{suggestionQueue, clock, notifications};
    MCPHubManager hub{hubQueue, log};
    KnowledgeGraph graph{database};
    MemorySealer sealer{secrets, random, log};
    FocusedContext focus{{.field = &focusedField, .workspace = &workspace, .firewall = firewall, .defaults = defaults}};
};
} // namespace snipwren
