#include <cstring>
#include <iostream>

#include "cli/CommandLine.h"

int main(int argc, char** argv) {
    std::ios::sync_with_stdio(false);
    // Answered before anything is opened: scripts ask it at every login.
    if (argc == 2 && std::strcmp(argv[1], "--version") == 0) {
        std::cout << "snipwren " SNIPWREN_VERSION "\n";
        return 0;
    }
    snipwren::Environment environment;
    if (const auto problem = environment.loadDefaults()) std::cerr << "snipwren: " << *problem << "\n";
    return snipwren::runCommandLine(argc, argv, std::cin, std::cout, std::cerr, environment);
}
