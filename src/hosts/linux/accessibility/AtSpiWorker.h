#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "base/Log.h"
#include "hosts/linux/accessibility/AtSpiFocusTracker.h"

namespace snipwren {
/// The one thread that talks to the accessibility bus. Other threads hand it jobs and wait for a bounded time: a job that
/// has not begun by then never runs. Reconnects when the bus goes away.
class AtSpiWorker {
public:
    static constexpr std::chrono::milliseconds waitForTurn{60};
    static constexpr std::chrono::seconds reconnectDelay{2};

    AtSpiWorker(ActiveWindowSource& windows, Log& log);
    ~AtSpiWorker();

    void start();
    /// Ends and joins the thread; jobs asked for afterwards do not run.
    void stop();
    bool isConnected() const { return connected_; }
    /// On the worker thread, or while it does not run.
    AtSpiFocusTracker& tracker() { return tracker_; }
    AtSpiBus& bus() { return bus_; }
    ActiveWindowSource& windows() { return windows_; }

    /// Runs the job on the worker thread; none when its turn did not come in time or there is no connection.
    template <class F>
    auto call(F&& job) -> std::optional<decltype(job())> {
        std::optional<decltype(job())> value;
        run([&] { value.emplace(job()); }, true);
        return value;
    }
    /// Runs the job on the worker thread however long that takes, also without a connection; on the calling thread when
    /// the worker does not run or is the caller.
    void runAlways(const std::function<void()>& job);

private:
    struct Job {
        const std::function<void()>* work = nullptr;
        bool needsConnection = true;
        enum class Stage { waiting, running, done, abandoned } stage = Stage::waiting;
    };
    void run(const std::function<void()>& work, bool bounded);
    void loop();
    void runJobs();
    void connect();
    void disconnect();
    void wake();

    AtSpiBus bus_;
    ActiveWindowSource& windows_;
    Log& log_;
    AtSpiFocusTracker tracker_;
    std::atomic<bool> connected_ = false;
    std::optional<SteadyPoint> connectAt_;
    bool toldOfFailure_ = false;

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::shared_ptr<Job>> jobs_;
    bool running_ = false;
    bool stopping_ = false;
    int wakeDescriptor_ = -1;
    std::thread thread_;
};
} // namespace snipwren
