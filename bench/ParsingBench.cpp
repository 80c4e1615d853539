// How fast typed text is read: the whole recogniser against the bare cost of walking and copying the same texts.
#include <algorithm>
#include <chrono>
#include <fstream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <nlohmann/json.hpp>

#include "parsing/DurationParser.h"
#include "parsing/calculation/CalcExpressionEvaluator.h"
#include "parsing/dates/CaptureDateParser.h"
#include "parsing/dates/DateDetector.h"

namespace snipwren {
namespace {
const Calendar& calendar() {
    static const Calendar calendar = *Calendar::make("America/New_York", "en_US");
    return calendar;
}

TimePoint reference() { return *calendar().resolve({2026, 8, 10, 9, 0, 0}); }

const std::vector<std::string>& examples() {
    static const std::vector<std::string> texts = [] {
        std::vector<std::string> list;
        std::ifstream in(SNIPWREN_SOURCE_DIR "/tests/data/dates/dev.jsonl");
        for (std::string line; std::getline(in, line);)
            list.push_back(nlohmann::json::parse(line).at("text").get<std::string>());
        return list;
    }();
    return texts;
}

/// The slowest hundredth of the calls, in microseconds, each text timed on its own as the best of a few runs: the machine's
/// interruptions are not the parser's.
template <class Call>
double p99Microseconds(const Call& call) {
    std::vector<double> times;
    for (const std::string& text : examples()) {
        double best = 1e9;
        for (int run = 0; run < 7; ++run) {
            const auto start = std::chrono::steady_clock::now();
            benchmark::DoNotOptimize(call(text));
            const std::chrono::duration<double, std::micro> time = std::chrono::steady_clock::now() - start;
            best = std::min(best, time.count());
        }
        times.push_back(best);
    }
    std::sort(times.begin(), times.end());
    return times[times.size() * 99 / 100];
}

void parseTitleAndDate(benchmark::State& state) {
    const TimePoint now = reference();
    const auto call = [&](const std::string& text) {
        return CaptureDateParser::parseTitleAndDate(text, now, calendar());
    };
    std::int64_t calls = 0;
    for (auto _ : state)
        for (const std::string& text : examples()) {
            benchmark::DoNotOptimize(call(text));
            ++calls;
        }
    state.SetItemsProcessed(calls);                   // Bar: 600,000 a second.
    state.counters["p99_us"] = p99Microseconds(call); // Bar: 10.
}
BENCHMARK(parseTitleAndDate);

/// The least that any parser does: look at each byte and answer with a copy.
void copyText(benchmark::State& state) {
    std::int64_t calls = 0;
    for (auto _ : state)
        for (const std::string& text : examples()) {
            benchmark::DoNotOptimize(collapsedWhitespace(text));
            ++calls;
        }
    state.SetItemsProcessed(calls);
}
BENCHMARK(copyText);

void parseAlarm(benchmark::State& state) {
    const TimePoint now = reference();
    std::int64_t calls = 0;
    for (auto _ : state)
        for (const std::string& text : examples()) {
            benchmark::DoNotOptimize(CaptureDateParser::parseAlarm(text, now, calendar()));
            ++calls;
        }
    state.SetItemsProcessed(calls);
}
BENCHMARK(parseAlarm);

/// A megabyte of what could make a recogniser go back and forth. Bar: 100 ms.
void megabyte(benchmark::State& state, const std::string& piece) {
    std::string text;
    while (text.size() < 1000000) text += piece;
    const TimePoint now = reference();
    for (auto _ : state) benchmark::DoNotOptimize(DateDetector::detect(text, now, calendar()));
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}
BENCHMARK_CAPTURE(megabyte, prose, "we met the owner of the house and talked about the new roof for a while. ")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(megabyte, dates, "dentist tomorrow at 3pm, ")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(megabyte, half_past, "half past ")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(megabyte, morning_of_the, "morning of the ")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(megabyte, digits, "1")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(megabyte, numbers, "1 ")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(megabyte, ranges, "may 1 to ")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(megabyte, weeks_from, "a week from ")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(megabyte, emoji, "🎂é ")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(megabyte, one_word, "a")->Unit(benchmark::kMillisecond);

void duration(benchmark::State& state, const char* text) {
    for (auto _ : state) benchmark::DoNotOptimize(DurationParser::parse(text)); // Bar: 5 microseconds.
}
BENCHMARK_CAPTURE(duration, two_terms, "1h 30m deep work");
BENCHMARK_CAPTURE(duration, no_term, "focus time on the quarterly report 2026");
BENCHMARK_CAPTURE(duration, many_terms, "1h 2m 3s 4m 5s 6m 7s 8m and tea");

void calculation(benchmark::State& state, const char* text) {
    for (auto _ : state)
        benchmark::DoNotOptimize(CalcExpressionEvaluator::previewEvaluate(text)); // Bar: 5 microseconds.
}
BENCHMARK_CAPTURE(calculation, percent, "15% of 847");
BENCHMARK_CAPTURE(calculation, nested, "((3+4)*5-2^3)/(1.5+2.25)*-4");
BENCHMARK_CAPTURE(calculation, invalid, "buy 2 tickets");
} // namespace
} // namespace snipwren

BENCHMARK_MAIN();
