#pragma once

#include <functional>
#include <memory>
#include <string>

#include <QString>

namespace snipwren {
/// One running program per session, by a name on the session bus, and the few requests that others make of it: a second
/// launch shows the menu, the command line asks for captures, the state and the end. Main thread.
class SingleInstance {
public:
    static constexpr const char* service = "org.snipwren.Desktop";
    static constexpr const char* path = "/org/snipwren/Desktop";
    static constexpr const char* interface = "org.snipwren.Desktop1";

    struct Requests {
        std::function<void()> showMenu;
        std::function<void()> quit;
        /// False for an unknown command word.
        std::function<bool(const std::string&)> capture;
        /// Takes back the last capture; `done` gets whether that was done, and the sentence, later on the main thread.
        std::function<void(std::function<void(bool, const std::string&)> done)> undo;
        /// JSON text.
        std::function<std::string()> status;
    };
    enum class Claim { claimed, alreadyRunning, noBus };

    SingleInstance();
    ~SingleInstance();
    Claim claim(Requests requests);
    /// Asks the one that runs to show its menu; false when that failed.
    static bool askForMenu();

private:
    class Object;
    std::unique_ptr<Object> object_;
};
} // namespace snipwren
