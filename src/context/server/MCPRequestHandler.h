#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

#include "context/server/JsonRpcHandler.h"
#include "store/DatabaseManager.h"

namespace snipwren {
class AICompletion;
class Clock;
class FocusedContext;
class KnowledgeGraph;
class MCPHubManager;
class MCPSuggestionQueue;
class MemorySealer;
class Random;

/// Answers the methods of the context server, whose names begin with "snipwren.". Text answers are plain strings in
/// `result`. It is the only writer of the stored context, which it therefore keeps in memory. Thread safe.
class MCPRequestHandler final : public JsonRpcHandler {
public:
    struct Dependencies {
        DatabaseManager& database;
        MCPSuggestionQueue& suggestions;
        MCPHubManager& hub;
        KnowledgeGraph& graph;
        MemorySealer& sealer;
        FocusedContext& focus;
        const Clock& clock;
        Random& random;
        /// Null where no assistant is set up; asking for a completion then answers an error.
        AICompletion* assistant = nullptr;
    };
    explicit MCPRequestHandler(const Dependencies& dependencies) : use_(dependencies) {}

    std::string handleRequest(std::string_view method, std::string_view params, std::string_view id,
                              const std::optional<std::string>& connectionId, std::stop_token stop) override;
    bool mayTakeLong(std::string_view method) const override { return method == "snipwren.triggerAI"; }

private:
    /// The JSON text of `result`, or the error to answer.
    struct Failure {
        int code;
        std::string message;
    };
    using Answer = Result<std::string, Failure>;
    struct Call {
        const nlohmann::json& params;
        const std::optional<std::string>& connectionId;
        std::stop_token stop;
    };
    struct StoredContext {
        /// The five members without braces, each with its text ("" when there is none).
        std::string members;
        bool wasPushed = false;
    };

    Answer answer(std::string_view method, std::string_view params, const std::optional<std::string>& connectionId,
                  const std::stop_token& stop);
    Answer pushContext(const Call& call);
    Answer pushSuggestions(const Call& call);
    Answer pushMemory(const Call& call);
    Answer queryContext(bool includeText);
    Answer clearSuggestions(const Call& call);
    Answer triggerAI(const Call& call);
    Answer subscribe(const Call& call);
    Answer queryGraph(const Call& call);
    Answer pushNode(const Call& call);
    Answer pushEdge(const Call& call);
    std::shared_ptr<const StoredContext> storedContext();

    const Dependencies use_;
    std::mutex contextMutex_;
    std::shared_ptr<const StoredContext> context_;
};
} // namespace snipwren
