// The backup-and-restore service on a host: clients connect, register their callbacks and
// hand over payloads; a thread of the service stores them (backup_store) and answers, so
// no callback ever runs on the caller's stack, as with the platform's own service.
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "backup/backup_keys.h"
#include "backup/backup_store.h"
#include "backup/json_check.h"
#include "bnr.h"
#include "common/missing_service.h"
#include "dlog.h"
#include "vconf.h"

#define BNR_HOST_LOG(prio, ...) __dlog_print(LOG_ID_SYSTEM, prio, host::kHostLogTag, __VA_ARGS__)

namespace {

// A payload larger than this is refused: the device list is far smaller.
constexpr size_t kMaxPayloadBytes = 32u << 20;
// At most one batch of backups is stored in this time: a backup after a quiet spell is
// stored at once, the backups of a burst together (one flush for all of them).
constexpr auto kBatchInterval = std::chrono::milliseconds(10);

struct Registration {
    int handle;
    std::string client;
    bnr_trigger_cb trigger;    // set for a trigger registration
    bnr_response_cb response;  // set for a response registration
    void* user_data;
};

struct Event {
    enum Kind { kBackup, kRestore, kTrigger } kind;
    std::string client;   // empty for a trigger to every connected client
    std::string payload;  // kBackup
    int trigger;          // kTrigger
};

class Service {
public:
    static Service& Get() {
        // Never destroyed: the thread may still deliver while static objects go away.
        static Service* service = new Service();
        return *service;
    }

    int Connect(const std::string& client) {
        std::lock_guard<std::mutex> hold(lock_);
        if (!thread_started_) {
            thread_started_ = true;
            std::thread(&Service::Run, this).detach();
        }
        connected_.insert(client);
        return BNR_ERROR_NONE;
    }

    // Watched from the first connection on, so that an operator can send triggers.
    void WatchTriggerKey() {
        {
            std::lock_guard<std::mutex> hold(lock_);
            if (watching_)
                return;
            watching_ = true;
        }
        if (vconf_notify_key_changed(host::backup::kTriggerKey, TriggerKeyChanged, this) !=
            VCONF_OK) {
            BNR_HOST_LOG(DLOG_WARN, "backup service: cannot watch %s; triggers are off",
                         host::backup::kTriggerKey);
        }
    }

    int Disconnect(const std::string& client) {
        std::unique_lock<std::mutex> hold(lock_);
        // Closing a closed connection is no error: clients close on every way out.
        connected_.erase(client);
        // A closed connection keeps no callbacks.
        std::vector<int> handles;
        for (const Registration& r : registrations_)
            if (r.client == client)
                handles.push_back(r.handle);
        for (int handle : handles)
            RemoveLocked(hold, handle);
        return BNR_ERROR_NONE;
    }

    int Register(const std::string& client, bnr_trigger_cb trigger, bnr_response_cb response,
                 void* user_data, int* handle) {
        std::lock_guard<std::mutex> hold(lock_);
        if (connected_.count(client) == 0)
            return BNR_ERROR_NOT_CONNECTED;
        *handle = next_handle_++;
        registrations_.push_back(Registration{*handle, client, trigger, response, user_data});
        return BNR_ERROR_NONE;
    }

    int Deregister(int handle, bool trigger) {
        std::unique_lock<std::mutex> hold(lock_);
        auto it = Find(handle);
        if (it == registrations_.end() || (it->trigger != nullptr) != trigger)
            return BNR_ERROR_INVALID_PARAMETER;
        RemoveLocked(hold, handle);
        return BNR_ERROR_NONE;
    }

    int Queue(Event event) {
        std::lock_guard<std::mutex> hold(lock_);
        if (!event.client.empty() && connected_.count(event.client) == 0)
            return BNR_ERROR_NOT_CONNECTED;
        queue_.push_back(std::move(event));
        wake_.notify_all();
        return BNR_ERROR_NONE;
    }

private:
    std::vector<Registration>::iterator Find(int handle) {
        return std::find_if(registrations_.begin(), registrations_.end(),
                            [handle](const Registration& r) { return r.handle == handle; });
    }

    // Once this returns, the callback is not running and will not run again, unless the
    // caller is that callback itself (it may deregister from inside).
    void RemoveLocked(std::unique_lock<std::mutex>& hold, int handle) {
        auto it = Find(handle);
        if (it != registrations_.end())
            registrations_.erase(it);
        if (std::this_thread::get_id() != service_thread_)
            delivered_.wait(hold, [&] { return delivering_ != handle; });
    }

    static void TriggerKeyChanged(keynode_t* node, void* data) {
        int trigger = vconf_keynode_get_int(node);
        BNR_HOST_LOG(DLOG_INFO, "backup service: trigger %d for every connected client", trigger);
        Event event{Event::kTrigger, std::string(), std::string(), trigger};
        static_cast<Service*>(data)->Queue(std::move(event));
    }

    void Run() {
        {
            std::lock_guard<std::mutex> hold(lock_);
            service_thread_ = std::this_thread::get_id();
        }
        for (;;) {
            std::vector<Event> batch = Take();
            switch (batch.front().kind) {
                case Event::kBackup:
                    StoreBackups(batch);
                    break;
                case Event::kRestore:
                    AnswerRestore(batch.front().client);
                    break;
                case Event::kTrigger:
                    DeliverTrigger(batch.front().trigger);
                    break;
            }
        }
    }

    // The next event; consecutive backups of one client come together, to be stored in one
    // transaction (one sync) however many arrived meanwhile.
    std::vector<Event> Take() {
        std::unique_lock<std::mutex> hold(lock_);
        wake_.wait(hold, [&] { return !queue_.empty(); });
        // Backups arrive one per change: in a burst, the ones of the next moments join.
        if (queue_.front().kind == Event::kBackup) {
            hold.unlock();
            std::this_thread::sleep_until(last_backup_ + kBatchInterval);
            last_backup_ = std::chrono::steady_clock::now();
            hold.lock();
        }
        std::vector<Event> batch;
        batch.push_back(std::move(queue_.front()));
        queue_.pop_front();
        while (batch.front().kind == Event::kBackup && !queue_.empty() &&
               queue_.front().kind == Event::kBackup &&
               queue_.front().client == batch.front().client) {
            batch.push_back(std::move(queue_.front()));
            queue_.pop_front();
        }
        return batch;
    }

    void StoreBackups(const std::vector<Event>& batch) {
        const std::string& client = batch.front().client;
        std::vector<std::string> payloads;
        for (const Event& e : batch)
            payloads.push_back(e.payload);
        bool stored = host::backup::AppendVersions(client, payloads);
        if (!stored) {
            BNR_HOST_LOG(DLOG_ERROR, "backup service: %zu backup(s) of %s not stored",
                         payloads.size(), client.c_str());
        }
        for (size_t i = 0; i < payloads.size(); ++i)
            DeliverResponse(client, stored ? BNR_RESPONSE_BACKUP_COMPLETED : BNR_RESPONSE_ERROR,
                            nullptr);
    }

    void AnswerRestore(const std::string& client) {
        std::optional<host::backup::Version> newest = host::backup::NewestVersion(client);
        // The client gets back what it stored, in the form it reads a restore in.
        std::string text = "{\"list\": " + (newest ? newest->payload : std::string("[]")) + "}";
        BNR_HOST_LOG(DLOG_INFO, "backup service: restoring version %lld of %s",
                     static_cast<long long>(newest ? newest->number : 0), client.c_str());
        bnr_resp_data_s data{&text[0], static_cast<int>(text.size())};
        DeliverResponse(client, BNR_RESPONSE_RESTORE_DATA, &data);
    }

    void DeliverTrigger(int trigger) {
        for (const Registration& r : Snapshot(std::string(), true))
            Call(r, [&] { r.trigger(static_cast<bnr_trigger_e>(trigger), r.user_data); });
    }

    void DeliverResponse(const std::string& client, bnr_response_e response,
                         bnr_resp_data_s* data) {
        for (const Registration& r : Snapshot(client, false))
            Call(r, [&] { r.response(response, data, r.user_data); });
    }

    // Registrations of connected clients (of one client, unless client is empty).
    std::vector<Registration> Snapshot(const std::string& client, bool triggers) {
        std::lock_guard<std::mutex> hold(lock_);
        std::vector<Registration> out;
        for (const Registration& r : registrations_) {
            if ((triggers ? r.trigger != nullptr : r.response != nullptr) &&
                (client.empty() || r.client == client) && connected_.count(r.client) != 0)
                out.push_back(r);
        }
        return out;
    }

    // Calls one callback unless it was deregistered since the snapshot; a deregistration
    // from another thread waits for the call to end.
    template <typename Callback>
    void Call(const Registration& r, Callback callback) {
        {
            std::lock_guard<std::mutex> hold(lock_);
            if (Find(r.handle) == registrations_.end())
                return;
            delivering_ = r.handle;
        }
        callback();
        std::lock_guard<std::mutex> hold(lock_);
        delivering_ = 0;
        delivered_.notify_all();
    }

    std::mutex lock_;
    std::condition_variable wake_;
    std::condition_variable delivered_;
    std::set<std::string> connected_;
    std::vector<Registration> registrations_;
    std::deque<Event> queue_;
    int next_handle_ = 1;
    int delivering_ = 0;
    bool thread_started_ = false;
    bool watching_ = false;
    std::thread::id service_thread_;
    // When the service thread last took backups (its own, never shared).
    std::chrono::steady_clock::time_point last_backup_ =
        std::chrono::steady_clock::now() - kBatchInterval;
};

// The client id checked as the store will use it; logs what was wrong.
bool ValidClient(const char* client, const char* function) {
    if (client != nullptr && host::backup::IsValidClientId(client))
        return true;
    BNR_HOST_LOG(DLOG_WARN, "backup service: %s: invalid client id", function);
    return false;
}

}  // namespace

extern "C" int bnr_init(const char* client_id, const char* /*client_name*/) {
    if (!ValidClient(client_id, __func__))
        return BNR_ERROR_INVALID_PARAMETER;
    int rc = Service::Get().Connect(client_id);
    Service::Get().WatchTriggerKey();
    return rc;
}

extern "C" int bnr_deinit(const char* client_id) {
    if (!ValidClient(client_id, __func__))
        return BNR_ERROR_INVALID_PARAMETER;
    return Service::Get().Disconnect(client_id);
}

extern "C" int bnr_trigger_callback_register(const char* client_id, bnr_trigger_cb cb,
                                             void* user_data, int* handle) {
    if (!ValidClient(client_id, __func__) || cb == nullptr || handle == nullptr)
        return BNR_ERROR_INVALID_PARAMETER;
    return Service::Get().Register(client_id, cb, nullptr, user_data, handle);
}

extern "C" int bnr_trigger_callback_deregister(int handle) {
    return Service::Get().Deregister(handle, true);
}

extern "C" int bnr_callback_register(const char* client_id, bnr_response_cb cb, void* user_data,
                                     int* handle) {
    if (!ValidClient(client_id, __func__) || cb == nullptr || handle == nullptr)
        return BNR_ERROR_INVALID_PARAMETER;
    return Service::Get().Register(client_id, nullptr, cb, user_data, handle);
}

extern "C" int bnr_callback_deregister(int handle) {
    return Service::Get().Deregister(handle, false);
}

extern "C" int bnr_backup(const char* client_id, const char* data, void* /*reserved*/) {
    if (!ValidClient(client_id, __func__) || data == nullptr)
        return BNR_ERROR_INVALID_PARAMETER;
    std::string error;
    // Strict JSON of any type: the client's empty list is the literal null.
    const size_t size = std::strlen(data);
    if (size > kMaxPayloadBytes || !host::backup::IsJson(data, size, &error)) {
        BNR_HOST_LOG(DLOG_WARN, "backup service: refused a payload of %s that is not JSON%s%s",
                     client_id, error.empty() ? " (too large)" : ": ", error.c_str());
        return BNR_ERROR_INVALID_PARAMETER;
    }
    return Service::Get().Queue(Event{Event::kBackup, client_id, data, 0});
}

extern "C" int bnr_restore(const char* client_id, void* /*reserved*/) {
    if (!ValidClient(client_id, __func__))
        return BNR_ERROR_INVALID_PARAMETER;
    return Service::Get().Queue(Event{Event::kRestore, client_id, std::string(), 0});
}

static int Report(const char* client_id, bool success, const char* function) {
    if (!ValidClient(client_id, function))
        return BNR_ERROR_INVALID_PARAMETER;
    BNR_HOST_LOG(DLOG_INFO, "backup service: %s reports a %s restore", client_id,
                 success ? "successful" : "failed");
    return host::backup::AddReport(client_id, success) ? BNR_ERROR_NONE
                                                       : BNR_ERROR_OPERATION_FAILED;
}

extern "C" int bnr_report_success(const char* client_id) {
    return Report(client_id, true, __func__);
}

extern "C" int bnr_report_failure(const char* client_id) {
    return Report(client_id, false, __func__);
}
