#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>

#include <fcntl.h>
#include <unistd.h>

#include <QApplication>
#include <QSocketNotifier>
#include <QStyleFactory>

#include "app/LinuxHost.h"
#include "shell/DesktopProgram.h"
#include "shell/SessionBusWatch.h"

namespace {
int signalPipe[2] = {-1, -1};

constexpr const char* pausedOption = "--paused";

/// How the program ended.
struct Ending {
    int status = 0;
    /// It is to begin anew, without listening when nobody is to listen.
    bool beginsAnew = false;
    bool isPaused = false;
};

/// Ends the loop from a signal: nothing else may be done inside of a handler.
void onSignal(int) { (void)!::write(signalPipe[1], "", 1); }

Ending run(int argc, char** argv, bool paused) {
    using namespace snipwren;
    QApplication application(argc, argv);
    QApplication::setApplicationName("snipwren");
    QApplication::setApplicationDisplayName("Snipwren");
    QApplication::setDesktopFileName("snipwren");
    QApplication::setQuitOnLastWindowClosed(false);
    if (QStyle* style = QStyleFactory::create("Fusion")) QApplication::setStyle(style);

    QtMainQueue mainQueue;
    PosixFileIO files;
    Environment environment(Paths::fromEnvironment(files), &mainQueue);
    if (const auto problem = environment.loadDefaults()) std::cerr << "snipwren-desktop: " << *problem << "\n";
    SingleInstance instance;
    DesktopProgram program(environment, mainQueue);
    switch (instance.claim(program.requests())) {
    case SingleInstance::Claim::alreadyRunning:
        if (SingleInstance::askForMenu()) return {};
        std::cerr << "snipwren-desktop: Snipwren runs already, but does not answer.\n";
        return {1};
    case SingleInstance::Claim::noBus:
        std::cerr
            << "snipwren-desktop: There is no session bus, so nothing can keep a second Snipwren from starting.\n";
        break;
    case SingleInstance::Claim::claimed: break;
    }

    if (::pipe2(signalPipe, O_CLOEXEC | O_NONBLOCK) != 0) return {1};
    struct sigaction action {};
    action.sa_handler = onSignal;
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) sigaction(number, &action, nullptr);
    QSocketNotifier ended(signalPipe[0], QSocketNotifier::Read);
    QObject::connect(&ended, &QSocketNotifier::activated, &application, &QCoreApplication::quit);

    program.start(paused);
    bool beginsAnew = false;
    // Name, status item and timers hang on the bus; after its end a new process takes them up again.
    const SessionBusWatch bus(
        [&environment] {
            environment.log().line("❌ DesktopProgram: The session bus ended. Captures go on without it.");
        },
        [&program, &beginsAnew] {
            program.whenIdle([&beginsAnew] {
                beginsAnew = true;
                QCoreApplication::quit();
            });
        });
    const int status = QApplication::exec();
    // Something that does not answer (a folder on a lost server, a locked database) keeps nobody waiting: what it has not
    // taken is kept for the next program, and this one ends without tidying up behind it.
    if (!program.finish()) std::_Exit(status);
    return {status, beginsAnew, program.isPaused()};
}
} // namespace

int main(int argc, char** argv) {
    using namespace snipwren;
    if (argc == 2 && std::strcmp(argv[1], "--version") == 0) {
        std::cout << "snipwren-desktop " SNIPWREN_VERSION "\n";
        return 0;
    }
    if (const auto reason = LinuxHost::reasonNotToTap()) {
        std::cerr << "snipwren-desktop: " << *reason << "\n";
        return 1;
    }
    if (const auto warning = LinuxHost::warning()) std::cerr << "snipwren-desktop: " << *warning << "\n";
    // Where an X server runs beside a Wayland one, the windows have to be where the keys are.
    qputenv("QT_QPA_PLATFORM", "xcb");
    const Ending ending = run(argc, argv, argc == 2 && std::strcmp(argv[1], pausedOption) == 0);
    if (!ending.beginsAnew) return ending.status;
    std::error_code error;
    const std::string program = std::filesystem::read_symlink("/proc/self/exe", error).string();
    ::execl(program.c_str(), program.c_str(), ending.isPaused ? pausedOption : nullptr, nullptr);
    std::cerr << "snipwren-desktop: Could not begin anew after the session bus came back: " << std::strerror(errno)
              << "\n";
    return 1;
}
