#include <iostream>

#include "cli/CommandLine.h"

int main(int argc, char** argv) {
    std::ios::sync_with_stdio(false);
    snipwren::Environment environment;
    if (const auto problem = environment.loadDefaults()) std::cerr << "snipwren: " << *problem << "\n";
    return snipwren::runCommandLine(argc, argv, std::cin, std::cout, std::cerr, environment);
}
