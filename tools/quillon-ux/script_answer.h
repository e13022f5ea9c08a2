// How the prompt answers without a display: the word in QUILLON_UX_ANSWER and the wait in
// QUILLON_UX_DELAY_MS, which is how tests and the demo drive it.
#pragma once

#include <string>

namespace quillon_ux {

struct ScriptAnswer {
    bool answers = false;   // false for "none": never answer, wait to be terminated
    int status = 0;         // allow 0, deny 1, undecided 2
    unsigned delay_ms = 0;  // before answering
};

// A decimal number of milliseconds up to a day in text (the variable called name); false with
// *error otherwise.
bool ReadMilliseconds(const char* name, const char* text, unsigned* ms, std::string* error);

// answer_word and delay_text as found in the environment (null when unset). False with
// *error when the answer is missing or not one of allow, deny, undecided, none, or the delay
// is not a decimal number of milliseconds.
bool ReadScriptAnswer(const char* answer_word, const char* delay_text, ScriptAnswer* answer,
                      std::string* error);

}  // namespace quillon_ux
