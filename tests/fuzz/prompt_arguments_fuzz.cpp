// Arbitrary argument vectors (NUL-separated words) as the prompt receives them. Beyond
// crashes: an accepted vector names every key once, and a failure always says why.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "prompt_request.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::vector<std::string> args(1);
    for (size_t i = 0; i < size; ++i) {
        if (data[i] == '\0')
            args.emplace_back();
        else
            args.back() += static_cast<char>(data[i]);
    }
    quillon_ux::PromptRequest request;
    std::string error;
    bool ok = quillon_ux::ParsePromptArguments(args, &request, &error);
    if (ok ? args.size() != 11 : error.empty())
        abort();
    return 0;
}
