#pragma once

#include <chrono>
#include <thread>

namespace vyn::testing {

// Far longer than anything that is waited for takes, also on a busy machine under a sanitizer.
constexpr auto kPatience = std::chrono::seconds(60);

// Waits until `condition` holds. Returns false when it never does.
template <typename Condition>
[[nodiscard]] bool waitUntil(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace vyn::testing
