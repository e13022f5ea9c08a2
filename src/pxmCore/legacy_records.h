// The line-oriented record formats that earlier versions of the service stored; they are
// only ever read.
#pragma once

#include "pxm_types.h"

namespace pxm_legacy {

enum class Format {
    kVersion0,     // "0\n" and records with a key type
    kVersion1,     // "1\n" and records with a key type and a zel id
    kUnversioned,  // records only, no key type
};

struct Match {
    int conversions;  // what the template matched (-1 at the end of the text)
    int consumed;     // characters the whole record took; 0 unless its closing tag matched
};

// Conversions a complete record of the format yields.
int ExpectedConversions(Format format);

// Matches one record at the start of text into dev (zero-filled by the caller). Every text
// field stays within its capacity whatever the input.
Match ScanRecord(Format format, const char* text, pxm_core_device_s* dev);

}  // namespace pxm_legacy
