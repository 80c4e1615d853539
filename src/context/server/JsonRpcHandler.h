#pragma once

#include <optional>
#include <stop_token>
#include <string>
#include <string_view>

namespace snipwren {
/// Answers the requests that the context server receives. Called on several threads at once.
class JsonRpcHandler {
public:
    virtual ~JsonRpcHandler() = default;
    /// The whole response object without a line feed. `params` is the JSON text of an object, `id` that of any value. The
    /// token is stopped when the asking connection is gone.
    virtual std::string handleRequest(std::string_view method, std::string_view params, std::string_view id,
                                      const std::optional<std::string>& connectionId, std::stop_token stop) = 0;
    /// True for methods that wait for the network: they run apart from the others, which then need not wait for them.
    virtual bool mayTakeLong(std::string_view method) const = 0;
};
} // namespace snipwren
