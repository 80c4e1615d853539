#include "app/AIAssistant.h"

namespace snipwren {
AIAssistant::AIAssistant(const Dependencies& d)
    : cacheQueue_(AISuggestionEngine::cacheQueueLabel),
      ollama_({d.http, d.secrets, d.defaults}),
      anthropic_({d.http, d.secrets, d.defaults}),
      openAI_({d.http, d.secrets, d.defaults}),
      providers_{&ollama_, &anthropic_, &openAI_},
      engine_({providers_,
               [&firewall = d.firewall](const std::string& text, const std::string& bundleId,
                                        const std::optional<std::string>& fieldType) {
                   return firewall.isSafeToProcess(text, bundleId, fieldType);
               },
               d.fields, d.workspace, d.defaults, d.clock, cacheQueue_}) {}
} // namespace snipwren
