#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

// What a fuzzer's one source defines: it tries one input, and aborts, by `require`, where a
// property doesn't hold. https://llvm.org/docs/LibFuzzer.html
void run(std::string_view input);

inline void require(bool holds, const char* property) {
    if (!holds) {
        std::fprintf(stderr, "it does not hold: %s\n", property);
        std::abort();
    }
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    run({reinterpret_cast<const char*>(data), size});
    return 0;
}
