// What the allocator sees of typed text: nothing while keys are followed, and no secret that is given back.
#include <cstdlib>
#include <cstring>
#include <new>

#include <gtest/gtest.h>

#include "base/ManualClock.h"
#include "trigger/TypedText.h"

namespace {
constexpr std::string_view secret = "hunter2hunter2";

/// What this thread allocated and released since it began to watch.
struct Watch {
    bool isOn = false;
    int allocations = 0;
    int secretsReleased = 0;
    char* largest = nullptr;
    std::size_t largestSize = 0;
};
thread_local Watch watch;

bool holdsSecret(const char* bytes, std::size_t size) {
    return ::memmem(bytes, size, secret.data(), secret.size()) != nullptr;
}
} // namespace

void* operator new(std::size_t size) {
    void* const made = std::malloc(size == 0 ? 1 : size);
    if (!made) throw std::bad_alloc();
    if (watch.isOn) {
        ++watch.allocations;
        std::memset(made, 0, size);
        if (size > watch.largestSize) {
            watch.largest = static_cast<char*>(made);
            watch.largestSize = size;
        }
    }
    return made;
}

void operator delete(void* made) noexcept {
    if (watch.isOn && made && made == watch.largest && holdsSecret(watch.largest, watch.largestSize))
        ++watch.secretsReleased;
    std::free(made);
}

void operator delete(void* made, std::size_t) noexcept { operator delete(made); }

namespace snipwren {
namespace {
void type(TypedText& typed, std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        KeyEvent event;
        event.keyCode = text[i] == ' ' ? keycode::space : 0;
        event.characters = text.substr(i, 1);
        typed.apply(event);
    }
}

TEST(TypedTextMemory, FollowingKeysAllocatesNothingAndASecretIsOverwritten) {
    const ManualClock clock(TimePoint{});
    for (const bool erases : {false, true}) {
        watch = {.isOn = true};
        {
            TypedText typed(clock, {"note", "copy"});
            watch.allocations = 0;
            for (int i = 0; i < 30; ++i) type(typed, "words and //not a trigger ");
            type(typed, secret);
            EXPECT_EQ(watch.allocations, 0);
            ASSERT_TRUE(holdsSecret(watch.largest, watch.largestSize)) << "it is looked for in the right place";
            if (erases) {
                typed.erase();
                EXPECT_FALSE(holdsSecret(watch.largest, watch.largestSize));
            }
        }
        EXPECT_EQ(watch.secretsReleased, 0) << erases;
        watch = {};
    }
}
} // namespace
} // namespace snipwren
