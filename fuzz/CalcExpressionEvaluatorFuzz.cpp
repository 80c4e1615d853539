// Any text: the preview shows what the evaluation gives, and no result is infinite.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "parsing/calculation/CalcExpressionEvaluator.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace snipwren;
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const auto value = CalcExpressionEvaluator::evaluate(text);
    if (value && !std::isfinite(*value)) std::abort();
    const auto preview = CalcExpressionEvaluator::previewEvaluate(text);
    if (preview && (!value || *preview != CalcExpressionEvaluator::formatResult(*value))) std::abort();
    return 0;
}
