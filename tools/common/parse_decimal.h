// Strict number parsing shared by the tools: what the daemon and the platform write with
// "%d" reads back, and nothing else.
#pragma once

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <string>

namespace quillon_tools {

// A decimal int with an optional sign and nothing around it, not even blanks.
inline bool ParseDecimal(const std::string& text, int* number) {
    size_t digits = (!text.empty() && (text[0] == '-' || text[0] == '+')) ? 1 : 0;
    if (digits == text.size())
        return false;
    for (size_t i = digits; i < text.size(); ++i)
        if (text[i] < '0' || text[i] > '9')
            return false;
    errno = 0;
    long long parsed = std::strtoll(text.c_str(), nullptr, 10);
    if (errno == ERANGE || parsed < INT_MIN || parsed > INT_MAX)
        return false;
    *number = static_cast<int>(parsed);
    return true;
}

}  // namespace quillon_tools
