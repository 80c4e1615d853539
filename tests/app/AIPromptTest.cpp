#include <gtest/gtest.h>

#include "app/Application.h"
#include "app/VirtualHost.h"
#include "support/LoopbackServer.h"
#include "support/TemporaryFolder.h"

namespace snipwren {
namespace {
using Phase = AIPromptState::Phase;

/// The whole program on the virtual desktop, its own threads and all, and a model server on this machine.
TEST(AIPrompt, RewritesTheSelectionOfAProgram) {
    TemporaryFolder folder;
    LoopbackServer server([](const LoopbackRequest& request) {
        return LoopbackReply{200, request.target == "/api/tags"
                                      ? R"({"models":[]})"
                                      : "{\"message\":{\"content\":\"Good \"},\"done\":false}\n"
                                        "{\"message\":{\"content\":\"day\"},\"done\":true}\n"};
    });
    Environment environment{Paths::under(folder.path())};
    (void)environment.defaults().set("ollamaBaseURL", server.url(""));
    VirtualHost host(environment.loop(), environment.clock(), VirtualHost::RealParts());
    Application application(environment, host.host());
    application.open();
    VirtualDesktop& desktop = host.desktop();
    const auto field = desktop.addField("com.example.editor", VirtualFieldKind::multiline);
    desktop.with(field, [](VirtualField& text) {
        text.setText("hey, all");
        text.select({0, 3});
    });
    desktop.focus(field);
    application.startTap();
    desktop.waitForTap();

    const auto press = [&](int code, Modifiers modifiers = {}) {
        KeyEvent event;
        event.keyCode = code;
        event.modifiers = modifiers;
        desktop.press(event);
    };
    const auto until = [&](const std::function<bool()>& done) {
        return environment.loop().runUntil(done, std::chrono::minutes(2));
    };
    press(keycode::space, {.control = true, .shift = true});
    ASSERT_TRUE(until([&] { return application.aiPrompt().state().selectedText == "hey"; }));
    press(keycode::returnKey);
    ASSERT_TRUE(until([&] { return application.aiPrompt().state().phase == Phase::closed; }));
    EXPECT_EQ(desktop.text(field), "Good day, all");
    desktop.type("!");
    EXPECT_EQ(desktop.text(field), "Good day!, all");
}

TEST(AIPrompt, EndsWithTheProgramInTheMiddleOfARequest) {
    TemporaryFolder folder;
    Environment environment{Paths::under(folder.path())};
    (void)environment.defaults().set("ollamaBaseURL", "http://127.0.0.1:9");
    VirtualHost host(environment.loop(), environment.clock(), VirtualHost::RealParts());
    { const Application neverOpened(environment, host.host()); }
    Application application(environment, host.host());
    application.open();
    application.startTap();
    host.desktop().waitForTap();
    environment.notifications().post("TriggerAIQuickActions");
    environment.notifications().post("CommitAIPrompt");
    environment.loop().runUntil([&] { return application.aiPrompt().state().phase != Phase::closed; },
                                std::chrono::minutes(2));
}
} // namespace
} // namespace snipwren
