// What the key tap costs everybody's typing, measured on a real X server with and without the tap in turns.
// Run it in a private desktop: tests/desktop/session.sh build/release/bench/keytap_bench
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>

#include <benchmark/benchmark.h>

#include "desktop/FieldHost.h"
#include "desktop/support/ChildProgram.h"
#include "desktop/support/HostWindow.h"
#include "desktop/support/Typist.h"

namespace snipwren {
namespace {
using namespace std::chrono_literals;
using SteadyClock = std::chrono::steady_clock;

std::unique_ptr<ChildProgram> startTap(const char* mode) {
    auto program = std::make_unique<ChildProgram>(std::vector<std::string>{SNIPWREN_TAP_HOST, SNIPWREN_TAPGUARD, mode});
    if (program->line() != "ready") return nullptr;
    return program;
}

double quantile(std::vector<double>& values, double q) {
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, static_cast<std::size_t>(q * static_cast<double>(values.size())))];
}

/// Microseconds from posting a key to its arrival in the window; the text grows by one character each time. Answers how
/// often the window lost the focus.
int typeAndTime(HostWindow& host, Typist& typist, int keys, std::vector<double>& microseconds) {
    for (int i = 0; i < keys; ++i) {
        const std::size_t before = host.text().size();
        const auto start = SteadyClock::now();
        typist.tap(38); // a
        typist.flush();
        while (host.text().size() == before && SteadyClock::now() - start < 1s)
            host.pumpUntil([&] { return host.text().size() != before; }, 100ms);
        microseconds.push_back(std::chrono::duration<double, std::micro>(SteadyClock::now() - start).count());
    }
    const int focusOuts = host.focusOuts();
    host.clear();
    return focusOuts;
}

void OrdinaryKeyLatency(benchmark::State& state) {
    HostWindow host;
    if (!host.focus()) return state.SkipWithError("The window did not get the focus.");
    host.clear();
    Typist typist;
    std::vector<double> without, with, throughout;
    int focusOuts = 0;
    for (auto _ : state) {
        for (int block = 0; block < 20; ++block) {
            typeAndTime(host, typist, 500, without);
            const auto tap = startTap("lazy");
            if (!tap) return state.SkipWithError("The tap did not start.");
            typeAndTime(host, typist, 20, throughout); // Warm.
            focusOuts += typeAndTime(host, typist, 500, with);
        }
    }
    const double p50 = quantile(without, 0.5);
    const double tapped = quantile(with, 0.5);
    state.counters["keys"] = static_cast<double>(with.size());
    state.counters["focus_outs"] = focusOuts;
    state.counters["p50_without_us"] = p50;
    state.counters["p50_with_us"] = tapped;
    state.counters["added_p50_us"] = tapped - p50;
    state.counters["p99_without_us"] = quantile(without, 0.99);
    state.counters["p99_with_us"] = quantile(with, 0.99);
    state.SetLabel("bar: added_p50_us <= 30, p99_with_us < 1000");
}
BENCHMARK(OrdinaryKeyLatency)->Iterations(1)->Unit(benchmark::kMillisecond);

/// Twenty thousand keys without a pause into a field of a toolkit: whether the text is what was typed.
void FullSpeedIntoAField(benchmark::State& state) {
    FieldHost fields(static_cast<FieldHost::Toolkit>(state.range(0)));
    state.SetLabel(FieldHost::name(static_cast<FieldHost::Toolkit>(state.range(0))));
    if (!fields.isReady()) return state.SkipWithError("The program with the fields did not start.");
    fields.focus("multi");
    std::string text;
    while (text.size() < 20000) text += "Sphinx of black quartz, judge my vow; 0123456789 (a+b)*c = \"d\" & E?\n";
    text.resize(20000);
    const auto tap = startTap("lazy");
    if (!tap) return state.SkipWithError("The tap did not start.");
    Typist typist;
    for (auto _ : state) {
        fields.set("multi", "");
        // In pieces, since an X server may end a slow program with too many events waiting.
        for (std::size_t at = 0; at < text.size(); at += 1000) typist.type(text.substr(at, 1000));
        std::string got;
        for (int i = 0; i < 400 && got != text; ++i) {
            std::this_thread::sleep_for(50ms);
            got = fields.get("multi");
        }
        std::size_t wrong = got.size() > text.size() ? got.size() - text.size() : text.size() - got.size();
        for (std::size_t i = 0; i < std::min(got.size(), text.size()); ++i) wrong += got[i] != text[i] ? 1 : 0;
        state.counters["keys"] = static_cast<double>(text.size());
        state.counters["wrong"] = static_cast<double>(wrong);
        if (wrong != 0) state.SkipWithError("The field does not hold what was typed.");
    }
}
BENCHMARK(FullSpeedIntoAField)
    ->Arg(static_cast<int>(FieldHost::Toolkit::gtk3))
    ->Arg(static_cast<int>(FieldHost::Toolkit::qt))
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

/// Two hundred triggers in one burst, every slash grabbed: each swallowed, the rest of the text exact.
void TriggersAtFullSpeed(benchmark::State& state) {
    HostWindow host;
    if (!host.focus()) return state.SkipWithError("The window did not get the focus.");
    host.clear();
    Typist typist;
    auto tap = startTap("eager");
    if (!tap) return state.SkipWithError("The tap did not start.");
    std::string typed, wanted;
    for (int i = 0; i < 200; ++i) {
        typed += "go //note on ";
        wanted += "go //noteon ";
    }
    for (auto _ : state) typist.type(typed), host.waitForText(wanted, 20000ms);
    const std::string counted = tap->end();
    state.counters["focus_outs_per_trigger"] = host.focusOuts() / 200.0;
    state.SetLabel(counted);
    if (host.text() != wanted || counted != "200 swallowed, 0 late")
        state.SkipWithError((counted + ", " + std::to_string(host.text().size()) + " of "
                             + std::to_string(wanted.size()) + " characters")
                                .c_str());
}
BENCHMARK(TriggersAtFullSpeed)->Iterations(1)->Unit(benchmark::kMillisecond);

long statusNumber(const std::string& file, const std::string& key) {
    std::ifstream stream(file);
    for (std::string line; std::getline(stream, line);)
        if (line.starts_with(key)) return std::atol(line.c_str() + key.size() + 1);
    return 0;
}

long wakeUps(pid_t process) {
    long sum = 0;
    for (const auto& thread : std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task"))
        sum += statusNumber(thread.path().string() + "/status", "voluntary_ctxt_switches");
    return sum;
}

void Idle(benchmark::State& state) {
    auto tap = startTap("lazy");
    if (!tap) return state.SkipWithError("The tap did not start.");
    std::this_thread::sleep_for(1500ms);
    const long before = wakeUps(tap->pid());
    for (auto _ : state) std::this_thread::sleep_for(5s);
    state.counters["wake_ups_in_5_s"] = static_cast<double>(wakeUps(tap->pid()) - before);
    state.counters["resident_kB"] =
        static_cast<double>(statusNumber("/proc/" + std::to_string(tap->pid()) + "/status", "VmRSS"));
}
BENCHMARK(Idle)->Iterations(1)->Unit(benchmark::kMillisecond);
} // namespace
} // namespace snipwren

int main(int argc, char** argv) {
    if (!std::getenv("DISPLAY")) {
        std::cout << "Left out, since there is no X server here. Try: tests/desktop/session.sh " << argv[0] << "\n";
        return 0;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
