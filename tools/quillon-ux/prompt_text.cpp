#include "prompt_text.h"

namespace quillon_ux {

std::string CountdownText(int seconds_left) {
    return seconds_left == 1 ? "Closing in 1 second"
                             : "Closing in " + std::to_string(seconds_left) + " seconds";
}

}  // namespace quillon_ux
