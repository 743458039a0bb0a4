// Refusals of the exported estimators: the words each family's check uses for its missing
// outputs, and a check that a call throws with exact words before anything is launched.
#pragma once

#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "support/launch_log.hpp"
#include "support/moment_families.hpp"

namespace qnd_test {

// What the check of `family` says when every output is missing, in the pointer form or (with
// `buffer_form`) the buffer form.
inline std::string missing_outputs(moment_family family, bool buffer_form) {
    struct words {
        const char* pointer;
        const char* buffer;
    };
    static const words table[] = {
        {"mean is nullptr", "mean array length is 0"},
        {"all sums are nullptr", "all sums arrays length is 0"},
        {"all moments are nullptr", "all moments arrays length is 0"},
        {"all sums are nullptr", "all sums arrays length is 0"},
        {"all moments are nullptr", "all moments arrays length is 0"},
        {"variation is nullptr", "variation array length is 0"},
        {"skewness is nullptr", "skewness array length is 0"},
        {"kurtosis is nullptr", "kurtosis array length is 0"},
    };
    const words& w = table[static_cast<int>(family)];
    return buffer_form ? w.buffer : w.pointer;
}

// Runs `call`, expects an exception of type E with exactly `text`, and no launch at all.
template <typename E>
void expect_refusal(const std::function<void()>& call, const std::string& text) {
    bool thrown = false;
    const auto log = record_launches([&] {
        try {
            call();
        } catch (const E& e) {
            thrown = true;
            EXPECT_EQ(std::string(e.what()), text);
        }
    });
    EXPECT_TRUE(thrown) << "expected: " << text;
    EXPECT_TRUE(log.empty()) << "launched: " << describe(log);
}

}  // namespace qnd_test
