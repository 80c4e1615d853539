// `snipwren`: answers --version itself and hands everything else to the program that does it, so that what is asked often
// and quickly does not wait for libraries that it never calls.
#include <cstdio>
#include <cstring>
#include <string>

#include <limits.h>
#include <unistd.h>

namespace {
/// The folder that this program stands in; empty where the system does not tell.
std::string ownFolder() {
    char path[PATH_MAX];
    const ssize_t length = ::readlink("/proc/self/exe", path, sizeof path);
    if (length <= 0) return {};
    const std::string whole(path, static_cast<std::size_t>(length));
    return whole.substr(0, whole.rfind('/') + 1);
}
} // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "--version") == 0) return std::puts("snipwren " SNIPWREN_VERSION) < 0;
    const bool isBridge = argc == 2 && std::strcmp(argv[1], "mcp") == 0;
    const std::string program = isBridge ? "snipwren-mcp" : "snipwren-commands";
    if (isBridge) argv[1] = nullptr;
    ::execv((ownFolder() + program).c_str(), argv);
    ::execvp(program.c_str(), argv);
    std::fprintf(stderr, "snipwren: the program \"%s\" is missing beside this one. Install Snipwren again.\n",
                 program.c_str());
    return 1;
}
