// Copying text into the record's fixed-size character fields.
#pragma once

#include <cstddef>
#include <cstring>

namespace pxm_persist {

// Copies at most N-1 characters and always terminates: over-long input is cut, never
// rejected, and a field never runs past its end.
template <std::size_t N>
inline void CopyField(char (&dst)[N], const char* src) {
    std::size_t len = strnlen(src, N - 1);
    std::memcpy(dst, src, len);
    dst[len] = '\0';
}

// Length of a field's text, bounded by its capacity in case a field arrives unterminated.
template <std::size_t N>
inline std::size_t FieldLength(const char (&field)[N]) {
    return strnlen(field, N);
}

}  // namespace pxm_persist
