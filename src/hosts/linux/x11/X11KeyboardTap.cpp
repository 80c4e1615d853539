#include "hosts/linux/x11/X11KeyboardTap.h"

#include <array>
#include <cerrno>
#include <thread>

#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <sys/eventfd.h>

#include "hosts/linux/desktop/DesktopSession.h"

namespace snipwren {
X11KeyboardTap::X11KeyboardTap(std::unique_ptr<TapLink> link, KeyboardTapListener& listener, OwnKeys& ownKeys,
                               Options options)
    : link_(std::move(link)),
      listener_(listener),
      ownKeys_(ownKeys),
      options_(std::move(options)),
      watchdog_(options_.answerLimit, [this] {
          enabled_ = false;
          const std::lock_guard lock(linkLock_);
          KeyGrabs::releaseEverything(connection(), link_->keyboard->masterDevice());
      }) {}

X11KeyboardTap::~X11KeyboardTap() { ownKeys_.setWatched(false); }

bool X11KeyboardTap::start() {
    wake_ = FileDescriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!wake_ || !watchdog_.start()) return false;
    if (!options_.guardProgram.empty() && guard_.start(options_.guardProgram)) beGuarded();
    return true;
}

void X11KeyboardTap::beGuarded() {
    if (guard_.isRunning())
        guard_.watch({link_->window, link_->keyboard->masterDevice(), link_->inputOpcode},
                     xcb_get_file_descriptor(connection()));
}

void X11KeyboardTap::run() {
    // Woken by the server, this thread would otherwise run before the server has written the key to its application.
    const sched_param priority{};
    pthread_setschedparam(pthread_self(), SCHED_BATCH, &priority);
    while (!stopping_) {
        serve();
        if (!stopping_) reconnect();
    }
    ownKeys_.setWatched(false);
    if (connected_) {
        link_->grabs->removeAll();
        xcb_flush(connection());
    }
}

void X11KeyboardTap::serve() {
    std::array<pollfd, 2> wait{{{xcb_get_file_descriptor(connection()), POLLIN, 0}, {wake_.get(), POLLIN, 0}}};
    while (!stopping_ && !xcb_connection_has_error(connection())) {
        while (XcbOwned<xcb_generic_event_t> event{xcb_poll_for_event(connection())}) handle(std::move(event));
        checkBarrier();
        takeRequests();
        if (interest_ == KeyInterest::everything) rearm();
        xcb_flush(connection());
        // Waiting for a reply may have read events in, of which the descriptor tells nothing any more.
        if (XcbOwned<xcb_generic_event_t> event{xcb_poll_for_queued_event(connection())}) {
            handle(std::move(event));
            continue;
        }
        poll(wait.data(), wait.size(), patience());
        if (wait[1].revents != 0) {
            std::uint64_t count = 0;
            while (read(wake_.get(), &count, sizeof count) < 0 && errno == EINTR) continue;
        }
    }
}

int X11KeyboardTap::patience() const {
    // Whoever ends the time of every key need not tell: a short one is watched closely.
    if (interest_ != KeyInterest::everything) return -1;
    return std::chrono::steady_clock::now() - everyKeySince_ < std::chrono::seconds(2) ? 10 : 100;
}

void X11KeyboardTap::reconnect() {
    connected_ = false;
    applied_ = false;
    pending_.clear();
    barrier_.reset();
    heldKey_.reset();
    ownKeys_.setWatched(false);
    bool told = false;
    for (int delay = 20; !stopping_; delay = std::min(2 * delay, 5000)) {
        if (auto link = TapLink::open(options_.display)) {
            {
                const std::lock_guard lock(linkLock_);
                link_ = std::move(*link);
            }
            beGuarded();
            connected_ = true;
            requested_ = true; // What is enabled is to be applied to the new connection.
            if (told) return;
            enabled_ = false;
            listener_.handleUserInputDisable();
            return;
        }
        if (!told) {
            enabled_ = false;
            listener_.handleUserInputDisable();
            told = true;
        }
        pollfd wait{wake_.get(), POLLIN, 0};
        poll(&wait, 1, delay);
        std::uint64_t count = 0;
        if (wait.revents != 0 && read(wake_.get(), &count, sizeof count) < 0) continue;
    }
}

void X11KeyboardTap::wake() {
    requested_ = true;
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(wake_.get(), &one, sizeof one);
}

void X11KeyboardTap::invalidate() {
    stopping_ = true;
    wake();
}

void X11KeyboardTap::setEnabled(bool enabled) {
    enabled_ = enabled;
    wake();
}

void X11KeyboardTap::interestChanged(const std::function<void()>& inForce) {
    {
        const std::lock_guard lock(requestLock_);
        interestRequested_ = true;
        if (inForce) toldWhenInForce_.push_back(inForce);
    }
    wake();
}

void X11KeyboardTap::takeRequests() {
    if (!requested_.exchange(false)) return;
    bool interest = false;
    std::vector<std::function<void()>> toTell;
    {
        const std::lock_guard lock(requestLock_);
        toTell.swap(toldWhenInForce_);
        interest = std::exchange(interestRequested_, false);
    }
    if (enabled_ != applied_) applyEnabled(enabled_);
    if (applied_ && interest) {
        loadChords();
        rearm();
    }
    for (const auto& tell : toTell) tell();
}

void X11KeyboardTap::applyEnabled(bool enabled) {
    dropBarrier();
    pending_.clear();
    heldKey_.reset();
    if (!enabled) {
        link_->grabs->removeAll();
    } else {
        // Whatever is left of the time before is not ours to answer.
        roundTrip(connection());
        while (XcbOwned<xcb_generic_event_t> event{xcb_poll_for_event(connection())}) handle(std::move(event));
    }
    applied_ = enabled;
    ownKeys_.setWatched(enabled);
    interest_ = KeyInterest::nothing;
    if (!enabled) return;
    listener_.handleMissedKeys(); // Whatever was typed in the meantime.
    loadChords();
    rearm();
}

void X11KeyboardTap::loadChords() {
    std::vector<KeyCombination> combinations;
    for (const KeyChord& chord : listener_.swallowableChords()) {
        for (const KeyCombination& combination : link_->keyboard->combinations(chord))
            combinations.push_back(combination);
    }
    link_->grabs->setCombinations(KeyGrabs::Set::chords, std::move(combinations));
    link_->grabs->install(KeyGrabs::Set::chords, true);
}

Result<std::shared_ptr<KeyboardTap>, TapError> X11KeyboardTapProvider::createTap(KeyboardTapListener& listener) {
    if (options_.display.empty()) {
        if (const auto reason = DesktopSession::fromEnvironment().reasonNotToTap())
            return unexpected(TapError{*reason});
    }
    auto link = TapLink::open(options_.display);
    if (!link) return unexpected(link.error());
    auto tap = std::make_shared<X11KeyboardTap>(std::move(*link), listener, ownKeys_, options_);
    if (!tap->start()) return unexpected(TapError{"The system has no threads or timers left for the key tap."});
    return tap;
}
} // namespace snipwren
