#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "scheduler/ScheduledItem.h"

/// Whatever can be read is written back to the same bytes, so nothing is read in two ways.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const auto items = snipwren::ScheduledItemCodec::decodeList(bytes);
    if (!items) return 0;
    const std::string again = snipwren::ScheduledItemCodec::encode(*items);
    const auto twice = snipwren::ScheduledItemCodec::decodeList(again);
    if (!twice || snipwren::ScheduledItemCodec::encode(*twice) != again) std::abort();
    return 0;
}
