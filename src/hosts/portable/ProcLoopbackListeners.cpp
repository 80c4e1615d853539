#include "hosts/portable/ProcLoopbackListeners.h"

#include <fstream>
#include <sstream>
#include <string>

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netinet/in.h>
#include <unistd.h>

namespace snipwren {
unsigned ProcLoopbackListeners::ownUser() const { return ::geteuid(); }

std::optional<LoopbackListeners::Listener> ProcLoopbackListeners::listenerOn(unsigned short port) {
    // The address is printed as the number that its bytes in network order make on this machine.
    const std::string wanted = fmt::format("{:08X}:{:04X}", htonl(INADDR_LOOPBACK), port);
    std::ifstream table("/proc/net/tcp");
    std::string line;
    while (std::getline(table, line)) {
        if (line.find(wanted) == std::string::npos) continue;
        std::istringstream columns(line);
        std::string slot, local, remote, state, queues, timer, retries, timeout;
        Listener listener;
        columns >> slot >> local >> remote >> state >> queues >> timer >> retries >> listener.user >> timeout
            >> listener.socket;
        constexpr const char* listening = "0A";
        if (columns && local == wanted && state == listening) return listener;
    }
    return std::nullopt;
}
} // namespace snipwren
