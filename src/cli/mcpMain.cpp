// `snipwren mcp` as a program of its own: it loads a quarter of the libraries, so AI clients start it in half the time.
#include <charconv>
#include <cstring>
#include <iostream>

#include "cli/McpProgram.h"
#include "context/server/MCPServer.h"

int main(int argc, char** argv) {
    unsigned short port = snipwren::MCPServer::defaultPort;
    const char* const end = argc == 3 ? argv[2] + std::strlen(argv[2]) : nullptr;
    const bool hasPort =
        argc == 3 && std::strcmp(argv[1], "--port") == 0 && std::from_chars(argv[2], end, port).ptr == end;
    if (argc != 1 && !hasPort) {
        std::cerr << "Usage: snipwren-mcp [--port PORT]\n";
        return 2;
    }
    snipwren::Environment environment;
    if (const auto problem = environment.loadDefaults()) std::cerr << "snipwren-mcp: " << *problem << "\n";
    snipwren::speakModelContextProtocol(environment, port);
    return 0;
}
