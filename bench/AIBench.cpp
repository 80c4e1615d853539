#include <atomic>
#include <chrono>
#include <string>

#include <benchmark/benchmark.h>
#include <nlohmann/json.hpp>

#include "ai/AIStreamReader.h"
#include "hosts/portable/CurlHttpClient.h"
#include "support/ScriptedServer.h"

// A streamed answer in the size that networks deliver it; the reference reads the same lines with the JSON library.
namespace {
constexpr std::size_t packetBytes = 1400;
constexpr double wantedMegabytesPerSecond = 200;

std::string openAIStream() {
    std::string stream;
    for (int i = 0; i < 20'000; ++i)
        stream += "data: {\"id\":\"chatcmpl-9x2f81b0c7\",\"object\":\"chat.completion.chunk\",\"created\":1750000000,"
                  "\"model\":\"gpt-4o-2024-08-06\",\"system_fingerprint\":\"fp_07871e2ad8\",\"choices\":[{\"index\":0,"
                  "\"delta\":{\"content\":\" word\"},\"logprobs\":null,\"finish_reason\":null}]}\n\n";
    return stream + "data: [DONE]\n\n";
}
std::string ollamaStream() {
    std::string stream;
    for (int i = 0; i < 20'000; ++i)
        stream += "{\"model\":\"llama3\",\"created_at\":\"2025-06-15T12:00:00.123456789Z\",\"message\":{\"role\":"
                  "\"assistant\",\"content\":\" word\"},\"done\":false}\n";
    return stream + "{\"message\":{\"content\":\"\"},\"done\":true}\n";
}

void readStream(benchmark::State& state, snipwren::AIStreamReader::Format format, const std::string& stream) {
    std::size_t shown = 0;
    for (auto _ : state) {
        snipwren::AIStreamReader reader(format, [&](std::string_view text) { shown += text.size(); });
        for (std::size_t at = 0; at < stream.size(); at += packetBytes)
            reader.feed(std::string_view(stream).substr(at, packetBytes));
        if (!reader.finish()) state.SkipWithError("the stream was not read to its end");
    }
    benchmark::DoNotOptimize(shown);
    const auto bytes = static_cast<double>(state.iterations()) * static_cast<double>(stream.size());
    state.counters["MB/s"] = benchmark::Counter(bytes / 1e6, benchmark::Counter::kIsRate);
    state.counters["times_the_bar_of_200"] =
        benchmark::Counter(bytes / 1e6 / wantedMegabytesPerSecond, benchmark::Counter::kIsRate);
}
BENCHMARK_CAPTURE(readStream, openAI, snipwren::AIStreamReader::Format::openAIEvents, openAIStream());
BENCHMARK_CAPTURE(readStream, ollama, snipwren::AIStreamReader::Format::ollamaLines, ollamaStream());

void jsonLibrary(benchmark::State& state) {
    const std::string stream = ollamaStream();
    std::size_t shown = 0;
    for (auto _ : state) {
        for (std::size_t at = 0; at < stream.size();) {
            const std::size_t end = stream.find('\n', at);
            const auto json = nlohmann::json::parse(stream.begin() + static_cast<std::ptrdiff_t>(at),
                                                    stream.begin() + static_cast<std::ptrdiff_t>(end));
            shown += json["message"]["content"].get_ref<const std::string&>().size();
            at = end + 1;
        }
    }
    benchmark::DoNotOptimize(shown);
    state.counters["MB/s"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * static_cast<double>(stream.size()) / 1e6,
                           benchmark::Counter::kIsRate);
    state.SetLabel("reference");
}
BENCHMARK(jsonLibrary);

/// From the moment a server sends a token to the moment it is handed on to be shown, over a real connection.
void firstToken(benchmark::State& state) {
    using Clock = std::chrono::steady_clock;
    std::atomic<Clock::time_point> sent = Clock::time_point();
    snipwren::ScriptedServer server([&](snipwren::ScriptedServer::Connection& connection) {
        connection.send("HTTP/1.1 200 OK\r\nContent-Type: application/x-ndjson\r\n\r\n");
        sent = Clock::now();
        connection.send("{\"message\":{\"content\":\"word\"},\"done\":false}\n");
        connection.send("{\"message\":{\"content\":\"\"},\"done\":true}\n");
    });
    snipwren::CurlHttpClient client;
    for (auto _ : state) {
        Clock::time_point shown;
        snipwren::AIStreamReader reader(snipwren::AIStreamReader::Format::ollamaLines,
                                        [&](std::string_view) { shown = Clock::now(); });
        snipwren::HttpRequest request;
        request.url = server.url("/");
        request.bodySink = [&](std::string_view bytes, std::optional<std::uint64_t>) { return reader.feed(bytes); };
        (void)client.send(request, {});
        if (!reader.finish()) state.SkipWithError("no answer");
        state.SetIterationTime(std::chrono::duration<double>(shown - sent.load()).count());
    }
    state.SetLabel("bar: 1 ms");
}
BENCHMARK(firstToken)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(500);
} // namespace

BENCHMARK_MAIN();
