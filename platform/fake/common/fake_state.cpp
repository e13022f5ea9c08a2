// The fake's shared state, scripted results and journal of calls.
#include "common/fake_state.h"

#include <algorithm>
#include <chrono>

namespace fake {
namespace detail {

State& GetState() {
    static State* state = new State();
    return *state;
}

CallScope::CallScope(const char* fn, std::vector<std::string> args, bool scriptable)
    : state_(GetState()), lock_(state_.mutex) {
    Data& d = state_.data;
    if (scriptable) {
        auto queued = d.queued_results.find(fn);
        if (queued != d.queued_results.end() && !queued->second.empty()) {
            scripted_ = queued->second.front();
            queued->second.pop_front();
        } else {
            auto standing = d.standing_results.find(fn);
            if (standing != d.standing_results.end()) {
                scripted_ = standing->second;
            }
        }
    }
    d.journal.push_back(Call{fn, std::move(args)});
}

CallScope::~CallScope() {
    Release();
}

void CallScope::Release() {
    if (lock_.owns_lock()) {
        lock_.unlock();
        state_.journal_grew.notify_all();
    }
}

std::string Text(const char* s) {
    return s ? std::string(s) : std::string("(null)");
}

std::string Ptr(const void* p) {
    return p ? std::string("(ptr)") : std::string("(null)");
}

std::string Num(long long v) {
    return std::to_string(v);
}

}  // namespace detail

using detail::GetState;

void Reset() {
    auto& s = GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.data = detail::Data{};
}

void SetResult(const std::string& fn, int value) {
    auto& s = GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.data.standing_results[fn] = value;
}

void QueueResult(const std::string& fn, int value) {
    auto& s = GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.data.queued_results[fn].push_back(value);
}

void ClearResult(const std::string& fn) {
    auto& s = GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.data.standing_results.erase(fn);
    s.data.queued_results.erase(fn);
}

std::vector<Call> Calls() {
    auto& s = GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.data.journal;
}

std::vector<Call> Calls(const std::string& fn) {
    auto& s = GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    std::vector<Call> out;
    for (const auto& call : s.data.journal) {
        if (call.fn == fn) {
            out.push_back(call);
        }
    }
    return out;
}

std::size_t CallCount(const std::string& fn) {
    auto& s = GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    return std::count_if(s.data.journal.begin(), s.data.journal.end(),
                         [&](const Call& call) { return call.fn == fn; });
}

std::vector<std::string> CallNames(const std::vector<std::string>& only) {
    auto& s = GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    std::vector<std::string> out;
    for (const auto& call : s.data.journal) {
        if (only.empty() || std::find(only.begin(), only.end(), call.fn) != only.end()) {
            out.push_back(call.fn);
        }
    }
    return out;
}

bool WaitForCalls(const std::string& fn, std::size_t count, int timeout_ms) {
    auto& s = GetState();
    std::unique_lock<std::mutex> lock(s.mutex);
    auto enough = [&] {
        std::size_t n = std::count_if(s.data.journal.begin(), s.data.journal.end(),
                                      [&](const Call& call) { return call.fn == fn; });
        return n >= count;
    };
    return s.journal_grew.wait_for(lock, std::chrono::milliseconds(timeout_ms), enough);
}

void ClearJournal() {
    auto& s = GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.data.journal.clear();
}

}  // namespace fake
