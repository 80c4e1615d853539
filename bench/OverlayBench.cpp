// From the key that ends a trigger to the overlay on the screen, over the whole desktop program: strip, caret and window.
// Run it in a private desktop: tests/desktop/session.sh build/release/bench/overlay_bench
#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <thread>

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

bool waitFor(xcb_connection_t* connection, xcb_window_t window, bool shown) {
    for (const auto end = Steady::now() + 5s; Steady::now() < end;) {
        const XcbOwned<xcb_get_window_attributes_reply_t> state(
            xcb_get_window_attributes_reply(connection, xcb_get_window_attributes(connection, window), nullptr));
        if (state && (state->map_state == XCB_MAP_STATE_VIEWABLE) == shown) return true;
        std::this_thread::sleep_for(200us);
    }
    return false;
}

void triggerToOverlay(benchmark::State& state) {
    const TemporaryFolder home;
    setenv("SNIPWREN_HOME", home.path().c_str(), 1);
    const ChildProgram program({SNIPWREN_DESKTOP_PROGRAM});
    // It reads nothing, so the end of its input would not end it.
    struct Ended {
        pid_t process;
        ~Ended() { kill(process, SIGTERM); }
    } const ended{program.pid()};
    Typist typist;
    xcb_window_t overlay = 0;
    for (int i = 0; i < 400 && overlay == 0; ++i) {
        std::this_thread::sleep_for(50ms);
        overlay = findOverlay(typist.connection());
    }
    FieldHost host(static_cast<FieldHost::Toolkit>(state.range(0)));
    if (overlay == 0 || !host.isReady()) return state.SkipWithError("the desktop is not ready");
    host.focus("entry");
    std::this_thread::sleep_for(2s);
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
    state.SetLabel(std::string(FieldHost::name(static_cast<FieldHost::Toolkit>(state.range(0)))) + ", host text left: '"
                   + host.get("entry") + "'");
}
BENCHMARK(triggerToOverlay)->DenseRange(0, 2)->Iterations(60)->UseManualTime()->Unit(benchmark::kMillisecond);
} // namespace
} // namespace snipwren

BENCHMARK_MAIN();
