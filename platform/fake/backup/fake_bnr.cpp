// Backup-and-restore service: registered callbacks by handle, and the payloads sent.
#include <algorithm>
#include <cstring>

#include "bnr.h"
#include "common/fake_state.h"

using fake::detail::Callback;
using fake::detail::CallScope;
using fake::detail::Data;
using fake::detail::Num;
using fake::detail::Ptr;
using fake::detail::Text;

namespace {

int Plain(const char* fn, std::vector<std::string> args) {
    CallScope call(fn, std::move(args));
    return call.scripted() ? *call.scripted() : BNR_ERROR_NONE;
}

// Both kinds of listener draw their handles from one counter, as the service's do.
template <typename Listener, typename Fn>
int Register(const char* fn, std::vector<Listener> Data::*listeners, const char* client_id, Fn cb,
             void* user_data, int* handle) {
    CallScope call(fn, {Text(client_id), Callback(cb), Ptr(user_data), Ptr(handle)});
    if (call.failed()) {
        return *call.scripted();
    }
    if (cb == nullptr || handle == nullptr) {
        return BNR_ERROR_INVALID_PARAMETER;
    }
    *handle = call.data().next_bnr_handle++;
    (call.data().*listeners).push_back({*handle, cb, user_data});
    return BNR_ERROR_NONE;
}

template <typename Listener>
int Deregister(const char* fn, std::vector<Listener> Data::*listeners, int handle) {
    CallScope call(fn, {Num(handle)});
    if (call.failed()) {
        return *call.scripted();
    }
    std::vector<Listener>& list = call.data().*listeners;
    auto it = std::find_if(list.begin(), list.end(),
                           [handle](const Listener& l) { return l.handle == handle; });
    if (it == list.end()) {
        return call.scripted() ? *call.scripted() : BNR_ERROR_INVALID_PARAMETER;
    }
    list.erase(it);
    return BNR_ERROR_NONE;
}

}  // namespace

extern "C" {

int bnr_init(const char* client_id, const char* client_name) {
    return Plain("bnr_init", {Text(client_id), Text(client_name)});
}

int bnr_deinit(const char* client_id) {
    return Plain("bnr_deinit", {Text(client_id)});
}

int bnr_trigger_callback_register(const char* client_id, bnr_trigger_cb cb, void* user_data,
                                  int* handle) {
    return Register("bnr_trigger_callback_register", &Data::bnr_triggers, client_id, cb, user_data,
                    handle);
}

int bnr_trigger_callback_deregister(int handle) {
    return Deregister("bnr_trigger_callback_deregister", &Data::bnr_triggers, handle);
}

int bnr_callback_register(const char* client_id, bnr_response_cb cb, void* user_data, int* handle) {
    return Register("bnr_callback_register", &Data::bnr_responses, client_id, cb, user_data,
                    handle);
}

int bnr_callback_deregister(int handle) {
    return Deregister("bnr_callback_deregister", &Data::bnr_responses, handle);
}

int bnr_backup(const char* client_id, const char* data, void* reserved) {
    CallScope call("bnr_backup", {Text(client_id), Text(data), Ptr(reserved)});
    if (call.failed()) {
        return *call.scripted();
    }
    if (data == nullptr) {
        return BNR_ERROR_INVALID_PARAMETER;
    }
    call.data().backup_payloads.emplace_back(data);
    return BNR_ERROR_NONE;
}

int bnr_restore(const char* client_id, void* reserved) {
    return Plain("bnr_restore", {Text(client_id), Ptr(reserved)});
}

int bnr_report_success(const char* client_id) {
    return Plain("bnr_report_success", {Text(client_id)});
}

int bnr_report_failure(const char* client_id) {
    return Plain("bnr_report_failure", {Text(client_id)});
}

}  // extern "C"

namespace fake {

bool HasBnrTriggerCallback() {
    auto& s = detail::GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    return !s.data.bnr_triggers.empty();
}

bool HasBnrResponseCallback() {
    auto& s = detail::GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    return !s.data.bnr_responses.empty();
}

void DeliverBnrTrigger(int trigger) {
    std::vector<detail::BnrTriggerListener> listeners;
    {
        auto& s = detail::GetState();
        std::lock_guard<std::mutex> lock(s.mutex);
        listeners = s.data.bnr_triggers;
    }
    for (const auto& l : listeners) {
        l.cb(static_cast<bnr_trigger_e>(trigger), l.user_data);
    }
}

void DeliverBnrResponse(int response, const char* data) {
    std::vector<detail::BnrResponseListener> listeners;
    {
        auto& s = detail::GetState();
        std::lock_guard<std::mutex> lock(s.mutex);
        listeners = s.data.bnr_responses;
    }
    for (const auto& l : listeners) {
        if (data == nullptr) {
            l.cb(static_cast<bnr_response_e>(response), nullptr, l.user_data);
            continue;
        }
        // A fresh writable copy per listener, as the service hands out its own buffer.
        std::string text(data);
        bnr_resp_data_s resp;
        resp.data = &text[0];
        resp.size = static_cast<int>(text.size());
        l.cb(static_cast<bnr_response_e>(response), &resp, l.user_data);
    }
}

std::vector<std::string> BackupPayloads() {
    auto& s = detail::GetState();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.data.backup_payloads;
}

}  // namespace fake
