// Runs the key tap in a program of its own, for tests and measurements that stop or kill it. Arguments: the guard's program
// or "-", and "eager" to grab every slash. Prints "ready", and at the end of its input the triggers it swallowed.
#include <cstring>
#include <iostream>
#include <string>

#include "desktop/support/RunningTap.h"

int main(int argc, char** argv) {
    snipwren::RecordingListener listener;
    snipwren::X11KeyboardTap::Options options;
    if (argc > 1 && std::strcmp(argv[1], "-") != 0) options.guardProgram = argv[1];
    options.grabEverySlash = argc > 2 && std::strcmp(argv[2], "eager") == 0;
    const snipwren::RunningTap tap(listener, options);
    if (!tap.tap) {
        std::cout << tap.error << std::endl;
        return 1;
    }
    std::cout << "ready" << std::endl;
    for (std::string line; std::getline(std::cin, line);) continue;
    std::cout << listener.count(false) << " swallowed, " << listener.count(true) << " late\n";
}
