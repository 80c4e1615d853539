#pragma once

#include "app/Environment.h"
#include "app/Host.h"
#include "base/ThreadQueue.h"
#include "update/AppUpdateChecker.h"

namespace snipwren {
/// The update checker of a desktop program, asked from time to time whether its daily check is due.
class Updates {
public:
    /// Late enough for the network to be up after a login.
    static constexpr std::chrono::minutes firstLook{2};
    static constexpr std::chrono::hours laterLooks{1};

    Updates(Environment& environment, const Host& host, HttpClient& http);
    ~Updates();

    void start();
    AppUpdateChecker& checker() { return checker_; }

private:
    void lookAfter(std::chrono::nanoseconds delay);

    SerialQueue& mainQueue_;
    ThreadQueue worker_;
    const RunningBuild running_;
    const UpdateService service_;
    AppUpdateChecker checker_;
    SerialQueue::TimerId timer_ = 0;
};
} // namespace snipwren
