#include "bus_text.h"

#include <glib.h>

namespace pxm_bus {

std::string BusText(const std::string& text) {
    if (g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr)) {
        return text;
    }
    gchar* valid = g_utf8_make_valid(text.data(), static_cast<gssize>(text.size()));
    std::string out(valid);
    g_free(valid);
    return out;
}

}  // namespace pxm_bus
