// Appending to a note must not grow with the note; previews and the filter of a large workspace must keep up with the
// typing.
#include <filesystem>
#include <fstream>
#include <string>

#include <benchmark/benchmark.h>
#include <unistd.h>

#include "base/FileIO.h"
#include "support/SchedulingRig.h"
#include "targets/AlarmTarget.h"
#include "targets/NoteAppend.h"
#include "targets/PickerFilter.h"
#include "targets/TimerTarget.h"

namespace snipwren {
namespace {
/// Bar: the same time for a note of 10 kB and one of 10 MB.
void appendToNote(benchmark::State& state) {
    const std::string path =
        (std::filesystem::temp_directory_path() / ("snipwren-bench-note-" + std::to_string(::getpid()))).string();
    const auto size = static_cast<std::size_t>(state.range(0));
    std::ofstream(path) << std::string(size, 'x');
    PosixFileIO files;
    for (auto _ : state)
        if (!NoteAppend::appendLine(files, path, "- [09:05] a capture of the usual length\n"))
            state.SkipWithError("the append failed");
    std::filesystem::remove(path);
}
BENCHMARK(appendToNote)->Arg(10'000)->Arg(10'000'000)->Unit(benchmark::kMicrosecond);

/// The same by rewriting the note as a whole: what appending saves.
void rewriteNote(benchmark::State& state) {
    const std::string path =
        (std::filesystem::temp_directory_path() / ("snipwren-bench-note-" + std::to_string(::getpid()))).string();
    std::ofstream(path) << std::string(static_cast<std::size_t>(state.range(0)), 'x');
    PosixFileIO files;
    for (auto _ : state)
        if (!files.writeAtomic(path, files.read(path).value() + "- [09:05] a capture of the usual length\n",
                               std::nullopt))
            state.SkipWithError("the write failed");
    std::filesystem::remove(path);
}
BENCHMARK(rewriteNote)->Arg(10'000'000)->Unit(benchmark::kMicrosecond);

template <class Target>
void preview(benchmark::State& state, const char* text) {
    SchedulingRig rig;
    const Target target({rig.scheduler, rig.calendar, rig.clock, rig.log});
    for (auto _ : state) benchmark::DoNotOptimize(target.preview(text));
}
void previewAlarm(benchmark::State& state) { preview<AlarmTarget>(state, "7:30am take meds"); }
void previewTimer(benchmark::State& state) { preview<TimerTarget>(state, "25m tea"); }
BENCHMARK(previewAlarm);
BENCHMARK(previewTimer);

/// Bar: below 5 ms a keystroke for 10,000 options, with and without hits, with a typing error.
void filterOptions(benchmark::State& state, const char* query) {
    std::vector<PickerOption> options;
    const char* const parts[] = {"team", "project", "général", "customer", "incident", "release", "design", "random"};
    for (std::size_t i = 0; i < 10'000; ++i)
        options.push_back({"C" + std::to_string(i), (i % 3 == 0 ? "@" : "#") + std::string(parts[i % 8]) + "-"
                                                        + parts[i / 8 % 8] + "-" + std::to_string(i)});
    PickerFilter filter;
    filter.setOptions(std::move(options));
    std::size_t found = 0;
    for (auto _ : state) found = filter.matching(query).size();
    state.counters["found"] = static_cast<double>(found);
}
BENCHMARK_CAPTURE(filterOptions, nothingTyped, "")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(filterOptions, oneLetter, "r")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(filterOptions, word, "release")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(filterOptions, typingError, "custmoer-inc")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(filterOptions, noHit, "zzzzzzzzzz")->Unit(benchmark::kMillisecond);
} // namespace
} // namespace snipwren

BENCHMARK_MAIN();
