// What stands between Return and the end of a capture: confirming it on the disk beside a plain flushed write, twenty
// captures past a target that never answers, and the end of the program meanwhile.
#include <cstdio>
#include <thread>

#include <fcntl.h>
#include <unistd.h>

#include "support/CaptureRig.h"

namespace snipwren {
namespace {
using Milliseconds = std::chrono::duration<double, std::milli>;

template <class Work>
double milliseconds(Work work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return Milliseconds(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double>& values) {
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2), values.end());
    return values[values.size() / 2];
}

void confirm() {
    constexpr int rounds = 400;
    DeliveryRig rig(std::make_shared<TemporaryFolder>());
    const std::string text(200, 'x');
    const int plain = ::open(rig.folder->file("plain").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    std::vector<double> ours, reference;
    for (int i = 0; i < rounds; ++i) {
        // In turn, so that both meet the same machine.
        reference.push_back(milliseconds([&] {
            if (::write(plain, text.data(), text.size()) < 0 || ::fsync(plain) != 0) std::perror("plain");
        }));
        ours.push_back(milliseconds([&] { (void)rig.delivery.accept({{}, "note", text, {}}); }));
        rig.settle();
    }
    ::close(plain);
    const double o = median(ours), r = median(reference);
    std::printf("confirm a capture, median: %.3f ms; a plain flushed write beside it: %.3f ms (ratio %.2f)\n", o, r,
                o / r);
}

void stuck() {
    DeliveryRig rig(std::make_shared<TemporaryFolder>());
    Gate gate;
    rig.target("slack").onSend = [&](CaptureAttempt&) { gate.wait(); };
    Delivery delivery(rig.deliveryWith(DeliveryRig::threadLane));
    (void)delivery.accept({{}, "slack", "never answered", PickerOption{"C1", "#general"}});
    const double landed = milliseconds([&] {
        for (int i = 0; i < 20; ++i)
            (void)delivery.accept({{}, i % 2 ? "note" : "timer", "capture " + std::to_string(i), {}});
        while (rig.landing.landings().size() < 20) std::this_thread::yield();
    });
    std::printf("20 captures past a target that never answers: %.1f ms (bar: 1000)\n", landed);
    const double end = milliseconds([&] { (void)delivery.finish(std::chrono::milliseconds(2500)); });
    std::size_t kept = 0;
    const auto entries = rig.journal.entries();
    for (const auto& entry : *entries) kept += entry.isOpen() ? 1 : 0;
    std::printf("end of the delivery meanwhile: %.0f ms (bar: 3000), %zu capture kept for the next program\n", end,
                kept);
    gate.open();
}
} // namespace
} // namespace snipwren

int main() {
    snipwren::confirm();
    snipwren::stuck();
}
