#include "app/AIPrompt.h"

#include <thread>

#include "ai/UserLanguage.h"
#include "trigger/EventTapManager.h"

namespace snipwren {
AIPrompt::AIPrompt(Environment& environment, const Host& host, AISuggestionEngine& engine, EventTapManager& tap)
    : worker_("com.snipwren.app.aiPrompt"),
      writer_({host.fields, host.keyboard, environment.log(),
               [](std::chrono::milliseconds time) { std::this_thread::sleep_for(time); }}),
      controller_({environment.notifications(), engine, writer_, host.pasteboard, host.headsUp, environment.defaults(),
                   host.mainQueue, worker_,
                   [&tap](bool on) {
                       tap.isAIPromptMode = on;
                       tap.interestChanged();
                   },
                   languageName(environment.calendar().localeName())}) {}

void AIPrompt::start() {
    worker_.start();
    controller_.start();
}
} // namespace snipwren
