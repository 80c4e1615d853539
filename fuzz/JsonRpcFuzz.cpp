// What another program sends: the envelope reader must agree with a full JSON reader, and cutting a stream into packets
// anywhere must not change its lines.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "context/server/JsonRpc.h"
#include "context/server/LineBuffer.h"

using namespace snipwren;

namespace {
void check(bool holds) {
    if (!holds) std::abort();
}

void readOne(std::string_view line) {
    const bool valid = JsonRpc::isValid(line);
    const auto request = JsonRpc::read(line);
    if (request) {
        check(valid);
        check(JsonRpc::isValid(request->id) && JsonRpc::isValid(request->params));
        check(JsonRpc::isValid(JsonRpc::result(request->id, request->params)));
    }
    // Numbers beyond a double, a byte order mark and what follows a zero byte are matters of taste; the rest is not.
    const bool marked = line.starts_with("\xEF\xBB\xBF") || line.find('\0') != std::string_view::npos;
    const bool accepted = !marked && nlohmann::json::accept(line);
    if (accepted && line.size() < JsonRpc::maxDepth) check(valid);
    if (!marked && line.find_first_of("0123456789") == std::string_view::npos && line.size() < JsonRpc::maxDepth)
        check(valid == accepted);
    check(nlohmann::json::accept(JsonRpc::quoted(line)));
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    const std::size_t step = data[0] % 16u + 1u;
    std::string whole;
    std::string pieces;
    LineBuffer once;
    LineBuffer cut;
    LineBuffer::forEachLine(*once.append(bytes), [&](std::string_view line) {
        whole.append(line).append("\n");
        readOne(line);
    });
    for (std::size_t at = 0; at < bytes.size(); at += step)
        LineBuffer::forEachLine(*cut.append(bytes.substr(at, step)),
                                [&](std::string_view line) { pieces.append(line).append("\n"); });
    check(whole == pieces && once.rest() == cut.rest());
    readOne(once.rest());
    return 0;
}
