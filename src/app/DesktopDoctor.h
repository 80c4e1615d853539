#pragma once

#include <string>
#include <vector>

#include "app/Environment.h"

namespace snipwren {
/// Looks at everything the desktop program needs of this session and says what works, what does not and what to do.
/// Blocking, some seconds at most.
class DesktopDoctor {
public:
    enum class Verdict { good, limited, bad };
    struct Finding {
        std::string subject;
        Verdict verdict = Verdict::good;
        /// What was found, and, unless good, what to do.
        std::string sentence;
    };

    explicit DesktopDoctor(Environment& environment) : environment_(environment) {}
    /// `selfTest`: types into a window of its own, which takes the focus for a moment.
    std::vector<Finding> examine(bool selfTest);

private:
    void examineSession();
    void examineDisplay();
    void examineBus();
    void examineProgram(bool selfTest);
    void examineFiles();
    void found(std::string subject, Verdict verdict, std::string sentence);

    Environment& environment_;
    std::vector<Finding> findings_;
    bool canTap_ = false;
};
} // namespace snipwren
