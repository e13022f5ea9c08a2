#include "script_answer.h"

#include <cstdlib>

namespace quillon_ux {

namespace {
// A day; anything longer is a typo, and the daemon gives up after 35 s anyway.
constexpr unsigned long kMaxDelayMs = 24UL * 60 * 60 * 1000;
}  // namespace

bool ReadScriptAnswer(const char* answer_word, const char* delay_text, ScriptAnswer* answer,
                      std::string* error) {
    if (!answer_word || !*answer_word) {
        *error = "no display support yet: set QUILLON_UX_ANSWER to allow, deny, undecided or none";
        return false;
    }
    ScriptAnswer parsed;
    const std::string word = answer_word;
    if (word == "allow") {
        parsed = {true, 0, 0};
    } else if (word == "deny") {
        parsed = {true, 1, 0};
    } else if (word == "undecided") {
        parsed = {true, 2, 0};
    } else if (word == "none") {
        parsed = {false, 0, 0};
    } else {
        *error = "QUILLON_UX_ANSWER must be allow, deny, undecided or none, not '" + word + "'";
        return false;
    }
    if (delay_text && *delay_text) {
        const std::string text = delay_text;
        bool digits = text.size() <= 9 && text.find_first_not_of("0123456789") == std::string::npos;
        unsigned long delay = digits ? std::strtoul(text.c_str(), nullptr, 10) : 0;
        if (!digits || delay > kMaxDelayMs) {
            *error = "QUILLON_UX_DELAY_MS must be a number of milliseconds up to " +
                     std::to_string(kMaxDelayMs) + ", not '" + text + "'";
            return false;
        }
        parsed.delay_ms = static_cast<unsigned>(delay);
    }
    *answer = parsed;
    return true;
}

}  // namespace quillon_ux
