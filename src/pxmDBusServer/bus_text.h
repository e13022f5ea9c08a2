// Text that goes out on the bus must be valid UTF-8, and a stored text need not be: a name
// cut to the record's capacity can end in half a character.
#pragma once

#include <cstddef>
#include <string>

#include "pxmCore/bounded_copy.h"

namespace pxm_bus {

// The text itself when it is valid UTF-8; otherwise each invalid sequence replaced by
// U+FFFD.
std::string BusText(const std::string& text);

// A record's character field, read within its capacity (a field is never trusted to be
// terminated).
template <std::size_t N>
std::string FieldText(const char (&field)[N]) {
    return BusText(pxm_text::FieldString(field));
}

}  // namespace pxm_bus
