#include "hosts/linux/accessibility/AtSpiWorker.h"

#include <algorithm>

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace snipwren {
namespace {
SteadyPoint steadyNow() { return std::chrono::steady_clock::now(); }
} // namespace

AtSpiWorker::AtSpiWorker(ActiveWindowSource& windows, Log& log)
    : windows_(windows),
      log_(log),
      tracker_(bus_, windows) {}

AtSpiWorker::~AtSpiWorker() { stop(); }

void AtSpiWorker::start() {
    const std::lock_guard lock(mutex_);
    if (running_ || stopping_) return;
    wakeDescriptor_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    running_ = true;
    thread_ = std::thread([this] { loop(); });
    pthread_setname_np(thread_.native_handle(), "accessibility");
}

void AtSpiWorker::stop() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
        wake();
    }
    if (thread_.joinable()) thread_.join();
    const std::lock_guard lock(mutex_);
    if (wakeDescriptor_ >= 0) ::close(wakeDescriptor_);
    wakeDescriptor_ = -1;
}

void AtSpiWorker::wake() {
    const std::uint64_t one = 1;
    if (wakeDescriptor_ >= 0) (void)!::write(wakeDescriptor_, &one, sizeof one);
}

void AtSpiWorker::run(const std::function<void()>& work, bool bounded) {
    const auto job = std::make_shared<Job>();
    job->work = &work;
    job->needsConnection = bounded;
    std::unique_lock lock(mutex_);
    if (!running_ || stopping_ || std::this_thread::get_id() == thread_.get_id()) {
        lock.unlock();
        if (!bounded) work();
        return;
    }
    jobs_.push_back(job);
    wake();
    const auto begun = [&] { return job->stage != Job::Stage::waiting; };
    if (bounded) {
        if (!changed_.wait_for(lock, waitForTurn, begun)) job->stage = Job::Stage::abandoned;
    } else {
        changed_.wait(lock, begun);
    }
    // A job that has begun is bounded by its own calls, and it uses the caller's variables.
    changed_.wait(lock, [&] { return job->stage != Job::Stage::running; });
}

void AtSpiWorker::runAlways(const std::function<void()>& job) { run(job, false); }

void AtSpiWorker::runJobs() {
    std::unique_lock lock(mutex_);
    while (!jobs_.empty()) {
        const std::shared_ptr<Job> job = jobs_.front();
        jobs_.pop_front();
        if (job->stage != Job::Stage::waiting) continue;
        if (job->needsConnection && !connected_) {
            job->stage = Job::Stage::abandoned;
            changed_.notify_all();
            continue;
        }
        job->stage = Job::Stage::running;
        lock.unlock();
        (*job->work)();
        lock.lock();
        job->stage = Job::Stage::done;
        changed_.notify_all();
    }
}

void AtSpiWorker::connect() {
    connectAt_.reset();
    if (const auto problem = bus_.open()) {
        if (!toldOfFailure_) log_.line("❌ AtSpiFocusedField: " + *problem);
        toldOfFailure_ = true;
        connectAt_ = steadyNow() + reconnectDelay;
        return;
    }
    toldOfFailure_ = false;
    connected_ = true;
    tracker_.connected();
}

void AtSpiWorker::disconnect() {
    connected_ = false;
    bus_.close();
    tracker_.disconnected();
    connectAt_ = steadyNow() + reconnectDelay;
}

void AtSpiWorker::loop() {
    connect();
    std::vector<AtSpiEvent> events;
    for (;;) {
        if (connected_) {
            events.clear();
            const bool alive = bus_.process(events);
            for (const AtSpiEvent& event : events) tracker_.handle(event);
            if (!alive) disconnect();
        }
        runJobs();
        const SteadyPoint now = steadyNow();
        std::optional<SteadyPoint> next = connectAt_;
        if (connected_) {
            next = tracker_.nextStep();
            if (next && *next <= now) {
                tracker_.step();
                next = tracker_.nextStep();
            }
        } else if (connectAt_ && *connectAt_ <= now) {
            connect();
            next = SteadyPoint{};
        }
        {
            std::unique_lock lock(mutex_);
            if (stopping_) {
                running_ = false;
                for (const auto& job : jobs_)
                    if (job->stage == Job::Stage::waiting) job->stage = Job::Stage::abandoned;
                jobs_.clear();
                changed_.notify_all();
                break;
            }
            if (!jobs_.empty()) continue;
        }
        int wait = -1;
        if (next)
            wait = static_cast<int>(
                std::max<std::int64_t>(0, std::chrono::ceil<std::chrono::milliseconds>(*next - steadyNow()).count()));
        pollfd descriptors[] = {{wakeDescriptor_, POLLIN, 0}, {bus_.fileDescriptor(), bus_.pollEvents(), 0}};
        ::poll(descriptors, 2, wait);
        std::uint64_t count = 0;
        (void)!::read(wakeDescriptor_, &count, sizeof count);
    }
    connected_ = false;
    bus_.close();
}
} // namespace snipwren
