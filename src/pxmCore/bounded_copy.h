// Copying text into and out of the record's fixed-size character fields, which are never
// trusted to be terminated.
#pragma once

#include <cstddef>
#include <cstring>
#include <string>

namespace pxm_text {

// Copies at most N-1 characters and zeroes the rest of the field: over-long input is cut,
// never rejected, and a field never runs past its end. A null source empties the field.
template <std::size_t N>
inline void CopyField(char (&dst)[N], const char* src) {
    std::size_t len = src != nullptr ? strnlen(src, N - 1) : 0;
    std::memcpy(dst, src != nullptr ? src : "", len);
    std::memset(dst + len, 0, N - len);
}

// Length of a field's text, bounded by its capacity.
template <std::size_t N>
inline std::size_t FieldLength(const char (&field)[N]) {
    return strnlen(field, N);
}

// A field's text as a string, read within its capacity.
template <std::size_t N>
inline std::string FieldString(const char (&field)[N]) {
    return std::string(field, FieldLength(field));
}

}  // namespace pxm_text
