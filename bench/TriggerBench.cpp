// What the key path costs: an ordinary key through tap manager and router, and the look-up that Space starts, with the
// heap allocations of each counted.
#include <atomic>
#include <cstdlib>
#include <new>

#include <benchmark/benchmark.h>

#include "support/CaptureRig.h"

namespace {
std::atomic<std::uint64_t> allocations = 0;
} // namespace

// Not inlined: the compiler would take the pair apart and warn about malloc meeting delete.
[[gnu::noinline]] void* operator new(std::size_t size) {
    ++allocations;
    if (void* memory = std::malloc(size ? size : 1)) return memory;
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace snipwren {
namespace {
KeyEvent keyFor(char character) {
    static char buffer[2];
    buffer[0] = character;
    KeyEvent event;
    event.keyCode = character == ' ' ? keycode::space : 0;
    event.characters = std::string_view(buffer, 1);
    return event;
}

/// A bare call through the interface with a key: what any tap must spend.
class PassingListener final : public KeyboardTapListener {
public:
    bool handleKeyEvent(const KeyEvent& event) override { return event.characters.empty(); }
    void handleTimeout() override {}
    void handleUserInputDisable() override {}
};

void Reference(benchmark::State& state) {
    PassingListener listener;
    KeyboardTapListener* tap = &listener;
    for (auto _ : state) {
        benchmark::DoNotOptimize(tap);
        benchmark::DoNotOptimize(tap->handleKeyEvent(keyFor('e')));
    }
}
BENCHMARK(Reference);

void OrdinaryKey(benchmark::State& state) {
    CaptureRig rig(false);
    for (int i = 0; i < 200; ++i) rig.tap->handleKeyEvent(keyFor('x')); // The buffer is full: the steady state.
    const std::uint64_t before = allocations;
    for (auto _ : state) benchmark::DoNotOptimize(rig.tap->handleKeyEvent(keyFor('e')));
    state.counters["allocations"] = static_cast<double>(allocations - before);
    state.SetLabel("bars: below 1 us, 0 allocations");
}
BENCHMARK(OrdinaryKey);

/// The cost of Space, after the given number of characters typed before it.
void SpaceAfter(benchmark::State& state) {
    CaptureRig rig(false);
    for (int i = 0; i < state.range(0); ++i) rig.tap->handleKeyEvent(keyFor('x'));
    const std::uint64_t before = allocations;
    for (auto _ : state) benchmark::DoNotOptimize(rig.tap->handleKeyEvent(keyFor(' ')));
    state.counters["allocations"] = static_cast<double>(allocations - before);
}
BENCHMARK(SpaceAfter)->Arg(10)->Arg(1000)->Arg(100000);
} // namespace
} // namespace snipwren

BENCHMARK_MAIN();
