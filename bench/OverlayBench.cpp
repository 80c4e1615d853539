// The whole desktop program: from the key that ends a trigger to the overlay that accepts keys, many captures without a
// pause, and idleness.
// Run it in a private desktop: tests/desktop/session.sh build/release/bench/overlay_bench
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <thread>

#include <poll.h>

#include <benchmark/benchmark.h>

#include "desktop/FieldHost.h"
#include "desktop/support/ChildProgram.h"
#include "desktop/support/Typist.h"
#include "support/TemporaryFolder.h"

namespace snipwren {
namespace {
using namespace std::chrono_literals;
using Steady = std::chrono::steady_clock;
constexpr std::chrono::microseconds keyGap = 6ms;

/// The overlay is a child of the root window, made at the start and mapped for each capture.
xcb_window_t findOverlay(xcb_connection_t* connection) {
    const XcbOwned<xcb_query_tree_reply_t> tree(
        xcb_query_tree_reply(connection, xcb_query_tree(connection, rootWindow(connection)), nullptr));
    if (!tree) return 0;
    const xcb_window_t* const windows = xcb_query_tree_children(tree.get());
    for (int i = 0; i < xcb_query_tree_children_length(tree.get()); ++i) {
        const XcbOwned<xcb_get_property_reply_t> name(xcb_get_property_reply(
            connection, xcb_get_property(connection, 0, windows[i], XCB_ATOM_WM_NAME, XCB_ATOM_ANY, 0, 64), nullptr));
        if (!name) continue;
        const std::string text(static_cast<const char*>(xcb_get_property_value(name.get())),
                               static_cast<std::size_t>(xcb_get_property_value_length(name.get())));
        if (text.find("Snipwren capture") != std::string::npos) return windows[i];
    }
    return 0;
}

/// Until the overlay has the keyboard, or has given it back.
bool waitFor(xcb_connection_t* connection, xcb_window_t window, bool accepting) {
    const int wanted = accepting ? XCB_FOCUS_IN : XCB_FOCUS_OUT;
    for (const auto end = Steady::now() + 5s; Steady::now() < end;) {
        while (const XcbOwned<xcb_generic_event_t> event{xcb_poll_for_event(connection)}) {
            if ((event->response_type & 0x7f) != wanted) continue;
            if (reinterpret_cast<const xcb_focus_in_event_t&>(*event).event == window) return true;
        }
        pollfd wait{xcb_get_file_descriptor(connection), POLLIN, 0};
        poll(&wait, 1, 100);
    }
    return false;
}

/// The desktop program in a home of its own.
class RunningProgram {
public:
    /// What stands in its settings, as JSON.
    explicit RunningProgram(const std::string& settings) {
        const std::string folder = home_.file("config/com.snipwren.app");
        std::filesystem::create_directories(folder);
        std::ofstream(folder + "/defaults.json") << settings;
        setenv("SNIPWREN_HOME", home_.path().c_str(), 1);
        program_ = std::make_unique<ChildProgram>(std::vector<std::string>{SNIPWREN_DESKTOP_PROGRAM});
    }
    /// It reads nothing, so the end of its input would not end it.
    ~RunningProgram() { kill(program_->pid(), SIGTERM); }
    RunningProgram(const RunningProgram&) = delete;
    RunningProgram& operator=(const RunningProgram&) = delete;

    xcb_window_t waitForOverlay(xcb_connection_t* connection) const {
        for (int i = 0; i < 400; ++i) {
            std::this_thread::sleep_for(50ms);
            if (const xcb_window_t overlay = findOverlay(connection); overlay != 0) return overlay;
        }
        return 0;
    }
    /// The captured notes, without their times.
    std::vector<std::string> notes() const {
        std::vector<std::string> found;
        std::ifstream file(home_.file("Documents/Snipwren/Quick Capture.md"));
        for (std::string line; std::getline(file, line);)
            if (line.starts_with("- [")) found.push_back(line.substr(10));
        return found;
    }
    pid_t pid() const { return program_->pid(); }

private:
    const TemporaryFolder home_;
    std::unique_ptr<ChildProgram> program_;
};

void triggerToOverlay(benchmark::State& state) {
    const RunningProgram program("{}");
    Typist typist;
    const xcb_window_t overlay = program.waitForOverlay(typist.connection());
    FieldHost host(static_cast<FieldHost::Toolkit>(state.range(0)));
    if (overlay == 0 || !host.isReady()) return state.SkipWithError("the desktop is not ready");
    host.focus("entry");
    std::this_thread::sleep_for(2s);
    const std::uint32_t focusChanges = XCB_EVENT_MASK_FOCUS_CHANGE;
    xcb_change_window_attributes(typist.connection(), overlay, XCB_CW_EVENT_MASK, &focusChanges);
    std::vector<double> times;
    for ([[maybe_unused]] auto _ : state) {
        typist.type("//note", keyGap);
        std::this_thread::sleep_for(30ms);
        const auto start = Steady::now();
        typist.type(" ");
        if (!waitFor(typist.connection(), overlay, true)) return state.SkipWithError("no overlay");
        const std::chrono::duration<double> took = Steady::now() - start;
        state.SetIterationTime(took.count());
        times.push_back(took.count() * 1000);
        typist.type("x\n", keyGap);
        waitFor(typist.connection(), overlay, false);
        std::this_thread::sleep_for(30ms);
    }
    std::sort(times.begin(), times.end());
    state.counters["p50_ms"] = times[times.size() / 2];
    state.counters["p99_ms"] = times[times.size() * 99 / 100];
    state.SetLabel(std::string(FieldHost::name(static_cast<FieldHost::Toolkit>(state.range(0))))
                   + "; bar: p50 < 20 ms, p99 < 100 ms");
    if (const std::string left = host.get("entry"); !left.empty())
        state.SkipWithError(("the host holds '" + left + "'").c_str());
}
BENCHMARK(triggerToOverlay)->DenseRange(0, 2)->Iterations(200)->UseManualTime()->Unit(benchmark::kMillisecond);

/// Two hundred whole captures without a pause between the keys, text of the host's in between: every message in the
/// note, every other character in the host.
void capturesAtFullSpeed(benchmark::State& state) {
    constexpr int captures = 200;
    const RunningProgram program(R"({"grabEverySlash": true})");
    Typist typist(Typist::Device::keyboard);
    const xcb_window_t overlay = program.waitForOverlay(typist.connection());
    FieldHost host(static_cast<FieldHost::Toolkit>(state.range(0)));
    if (overlay == 0 || !host.isReady()) return state.SkipWithError("the desktop is not ready");
    host.focus("entry");
    std::this_thread::sleep_for(2s);
    const auto gap = std::chrono::microseconds(state.range(1));
    std::string wanted;
    std::vector<std::string> messages;
    std::string typed;
    for (int i = 0; i < captures; ++i) {
        const std::string number = std::to_string(i);
        typed += "w" + number + " //note m" + number + "\n";
        wanted += "w" + number + " ";
        messages.push_back("m" + number);
    }
    std::string text;
    std::vector<std::string> notes;
    for ([[maybe_unused]] auto _ : state) {
        typist.type(typed, gap);
        for (const auto end = Steady::now() + 60s; Steady::now() < end;) {
            std::this_thread::sleep_for(20ms);
            notes = program.notes();
            text = host.get("entry");
            if (notes.size() >= captures && text == wanted) break;
        }
    }
    state.counters["captures"] = static_cast<double>(notes.size());
    const auto differs = std::mismatch(text.begin(), text.end(), wanted.begin(), wanted.end());
    std::sort(notes.begin(), notes.end());
    std::sort(messages.begin(), messages.end());
    state.SetLabel(std::string(FieldHost::name(static_cast<FieldHost::Toolkit>(state.range(0)))) + ", "
                   + std::to_string(gap.count()) + " us a key");
    if (text != wanted)
        return state.SkipWithError(("the host holds '" + std::string(differs.first, text.end()).substr(0, 60)
                                    + "' in place of '" + std::string(differs.second, wanted.end()).substr(0, 60) + "'")
                                       .c_str());
    if (notes != messages) state.SkipWithError("the note does not hold every message once");
}
BENCHMARK(capturesAtFullSpeed)
    ->ArgsProduct({{0, 1, 2}, {0, 500, 2000, 6000}})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

long numberAfter(const std::string& file, const std::string& key) {
    std::ifstream stream(file);
    for (std::string line; std::getline(stream, line);)
        if (line.starts_with(key)) return std::atol(line.c_str() + key.size() + 1);
    return 0;
}

/// The whole program while nobody types.
void idle(benchmark::State& state) {
    const RunningProgram program("{}");
    Typist typist;
    if (program.waitForOverlay(typist.connection()) == 0) return state.SkipWithError("the desktop is not ready");
    std::this_thread::sleep_for(5s);
    const std::string process = "/proc/" + std::to_string(program.pid());
    const auto wakeUps = [&] {
        long sum = 0;
        for (const auto& thread : std::filesystem::directory_iterator(process + "/task"))
            sum += numberAfter(thread.path().string() + "/status", "voluntary_ctxt_switches");
        return sum;
    };
    const long before = wakeUps();
    for ([[maybe_unused]] auto _ : state) std::this_thread::sleep_for(30s);
    state.counters["wake_ups_in_30_s"] = static_cast<double>(wakeUps() - before);
    state.counters["resident_MB"] = static_cast<double>(numberAfter(process + "/status", "VmRSS")) / 1024;
    state.SetLabel("bar: none but the watchdog's (one each 3 s), < 60 MB");
}
BENCHMARK(idle)->Iterations(1)->Unit(benchmark::kMillisecond);
} // namespace
} // namespace snipwren

BENCHMARK_MAIN();
