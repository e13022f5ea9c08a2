#include "script_answer.h"

#include <cstdlib>

namespace quillon_ux {

namespace {
// A day; anything longer is a typo, and the daemon gives up after 35 s anyway.
constexpr unsigned long kMaxDelayMs = 24UL * 60 * 60 * 1000;
}  // namespace

bool ReadMilliseconds(const char* name, const char* text, unsigned* ms, std::string* error) {
    const std::string value = text ? text : "";
    bool digits = !value.empty() && value.size() <= 9 &&
                  value.find_first_not_of("0123456789") == std::string::npos;
    unsigned long parsed = digits ? std::strtoul(value.c_str(), nullptr, 10) : 0;
    if (!digits || parsed > kMaxDelayMs) {
        *error = std::string(name) + " must be a number of milliseconds up to " +
                 std::to_string(kMaxDelayMs) + ", not '" + value + "'";
        return false;
    }
    *ms = static_cast<unsigned>(parsed);
    return true;
}

bool ReadScriptAnswer(const char* answer_word, const char* delay_text, ScriptAnswer* answer,
                      std::string* error) {
    if (!answer_word || !*answer_word) {
        *error = "QUILLON_UX_ANSWER is not set: set it to allow, deny, undecided or none";
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
    if (delay_text && *delay_text &&
        !ReadMilliseconds("QUILLON_UX_DELAY_MS", delay_text, &parsed.delay_ms, error))
        return false;
    *answer = parsed;
    return true;
}

}  // namespace quillon_ux
