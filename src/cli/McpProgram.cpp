#include "cli/McpProgram.h"

#include <csignal>
#include <optional>

#include <unistd.h>

#include "cli/CaptureProcess.h"
#include "cli/StdioBridge.h"

namespace snipwren {
McpSecrets::McpSecrets(Environment& environment)
    : helper_({.files = environment.files(),
               .paths = environment.paths(),
               .queue = queue_,
               .log = environment.log(),
               .keychain = *keychain_}) {
    queue_.start();
}

void speakModelContextProtocol(Environment& environment, unsigned short port) {
    std::signal(SIGPIPE, SIG_IGN); // A client that went away shows when writing.
    std::optional<McpSecrets> secrets;
    const std::unique_ptr<LoopbackListeners> listeners = makeLoopbackListeners();
    const auto reach = [&] {
        if (!secrets) secrets.emplace(environment);
        return ContextClient::connect(port, secrets->helper(), *listeners);
    };
    StdioBridge(STDIN_FILENO, STDOUT_FILENO, reach, captureInOwnProcess).run();
}
} // namespace snipwren
