// The host platform's log, watchdog, bundles and the services it does not offer yet.
#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <ctime>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "aov.h"
#include "aul.h"
#include "bluetooth_product.h"
#include "bnr.h"
#include "bundle.h"
#include "device_power.h"
#include "dlog.h"
#include "net_connection.h"
#include "realtime_clock.h"
#include "smart_deadlock.h"
#include "system_info.h"
#include "wifi.h"

namespace {

// Sends everything written on stderr to a file until Finish().
class StderrCapture {
public:
    StderrCapture() {
        char pattern[] = "/tmp/quillon-stderr-XXXXXX";
        int fd = mkstemp(pattern);
        EXPECT_GE(fd, 0);
        path_ = pattern;
        fflush(stderr);
        saved_ = dup(STDERR_FILENO);
        dup2(fd, STDERR_FILENO);
        close(fd);
    }
    ~StderrCapture() { Finish(); }
    std::string Finish() {
        if (saved_ >= 0) {
            fflush(stderr);
            dup2(saved_, STDERR_FILENO);
            close(saved_);
            saved_ = -1;
            std::ifstream in(path_, std::ios::binary);
            std::ostringstream content;
            content << in.rdbuf();
            text_ = content.str();
            unlink(path_.c_str());
        }
        return text_;
    }

private:
    std::string path_;
    std::string text_;
    int saved_ = -1;
};

class HostLog : public ::testing::Test {
protected:
    void SetUp() override {
        unsetenv("JOURNAL_STREAM");
        unsetenv("QUILLON_LOG_LEVEL");
    }
};

TEST_F(HostLog, LinesCarryLevelLetterAndTagAndFollowTheLevelFilter) {
    StderrCapture capture;
    int written = __dlog_print(LOG_ID_SYSTEM, DLOG_INFO, "PXM_CORE", "%s: %s(%d) > START",
                               "pxmCore", "Init", 42);
    EXPECT_EQ(written, static_cast<int>(strlen("I/PXM_CORE: pxmCore: Init(42) > START\n")));
    EXPECT_EQ(__dlog_print(LOG_ID_SYSTEM, DLOG_DEBUG, "PXM_CORE", "hidden by default"), 0);
    __dlog_print(LOG_ID_SYSTEM, DLOG_WARN, "PXM_LOG", "warn %d", 5);
    __dlog_print(LOG_ID_SYSTEM, DLOG_ERROR, "PXM_LOG", "Initialized[%d]", 1);

    setenv("QUILLON_LOG_LEVEL", "warn", 1);
    __dlog_print(LOG_ID_SYSTEM, DLOG_INFO, "T", "info under warn");
    __dlog_print(LOG_ID_SYSTEM, DLOG_WARN, "T", "warn under warn");
    setenv("QUILLON_LOG_LEVEL", "error", 1);
    __dlog_print(LOG_ID_SYSTEM, DLOG_WARN, "T", "warn under error");
    __dlog_print(LOG_ID_SYSTEM, DLOG_ERROR, "T", "error under error");
    setenv("QUILLON_LOG_LEVEL", "debug", 1);
    __dlog_print(LOG_ID_SYSTEM, DLOG_DEBUG, "T", "debug under debug");
    setenv("QUILLON_LOG_LEVEL", "nonsense", 1);
    __dlog_print(LOG_ID_SYSTEM, DLOG_DEBUG, "T", "debug under nonsense");
    __dlog_print(LOG_ID_SYSTEM, DLOG_INFO, "T", "info under nonsense");

    EXPECT_EQ(capture.Finish(),
              "I/PXM_CORE: pxmCore: Init(42) > START\n"
              "W/PXM_LOG: warn 5\n"
              "E/PXM_LOG: Initialized[1]\n"
              "W/T: warn under warn\n"
              "E/T: error under error\n"
              "D/T: debug under debug\n"
              "I/T: info under nonsense\n");
}

TEST_F(HostLog, EveryCallIsOneWholeLine) {
    // A JOURNAL_STREAM that names another file is inherited, not ours: stderr is used.
    setenv("JOURNAL_STREAM", "1:1", 1);
    const std::string long_text(5000, 'x');
    StderrCapture capture;
    __dlog_print(LOG_ID_SYSTEM, DLOG_INFO, "T", "first\nsecond\n");
    __dlog_print(LOG_ID_SYSTEM, DLOG_INFO, "T", "%s", long_text.c_str());
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            const std::string pad(300, 'p');
            for (int i = 0; i < 200; ++i)
                __dlog_print(LOG_ID_SYSTEM, DLOG_INFO, "T", "thread %d line %d %s", t, i,
                             pad.c_str());
        });
    }
    for (auto& thread : threads)
        thread.join();
    std::istringstream lines(capture.Finish());
    std::string line;
    ASSERT_TRUE(std::getline(lines, line));
    EXPECT_EQ(line, "I/T: first\\nsecond");
    ASSERT_TRUE(std::getline(lines, line));
    EXPECT_EQ(line, "I/T: " + long_text);
    const std::regex whole("I/T: thread [0-3] line [0-9]+ p{300}");
    int count = 0;
    while (std::getline(lines, line)) {
        EXPECT_TRUE(std::regex_match(line, whole)) << line.substr(0, 80);
        ++count;
    }
    EXPECT_EQ(count, 800);
}

TEST(HostMissingServices, FailWithThePlatformCodesAndWarnOncePerFunction) {
    unsetenv("JOURNAL_STREAM");
    unsetenv("QUILLON_LOG_LEVEL");
    StderrCapture capture;
    EXPECT_EQ(wifi_initialize(), WIFI_ERROR_NOT_SUPPORTED);
    EXPECT_EQ(wifi_initialize(), WIFI_ERROR_NOT_SUPPORTED);
    connection_h connection = reinterpret_cast<connection_h>(0x1);
    EXPECT_EQ(connection_create(&connection), CONNECTION_ERROR_OPERATION_FAILED);
    EXPECT_EQ(connection, nullptr);
    EXPECT_EQ(bnr_backup("client", "{}", nullptr), BNR_ERROR_NOT_CONNECTED);
    EXPECT_EQ(bnr_backup("client", "{}", nullptr), BNR_ERROR_NOT_CONNECTED);
    // The headless table needs no adapter on a host.
    EXPECT_EQ(bt_product_init(), BT_ERROR_NONE);
    EXPECT_EQ(bt_product_deinit(), BT_ERROR_NONE);

    EXPECT_EQ(capture.Finish(),
              "W/QUILLON_HOST: host platform: no Wi-Fi service yet (wifi_initialize)\n"
              "W/QUILLON_HOST: host platform: no network connection service yet "
              "(connection_create)\n"
              "W/QUILLON_HOST: host platform: no backup service yet (bnr_backup)\n");
}

TEST(HostBundle, KeepsInsertionOrderAndRefusesDuplicateKeys) {
    bundle* b = bundle_create();
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(bundle_add(b, "zeta", "1"), BUNDLE_ERROR_NONE);
    EXPECT_EQ(bundle_add(b, "alpha", "2"), BUNDLE_ERROR_NONE);
    EXPECT_EQ(bundle_add(b, "mid", ""), BUNDLE_ERROR_NONE);
    EXPECT_EQ(bundle_add(b, "alpha", "3"), BUNDLE_ERROR_KEY_EXISTS);
    EXPECT_EQ(bundle_add(b, nullptr, "x"), BUNDLE_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(bundle_add(b, "k", nullptr), BUNDLE_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(bundle_add(nullptr, "k", "v"), BUNDLE_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(bundle_get_count(b), 3);
    EXPECT_STREQ(bundle_get_val(b, "alpha"), "2");
    EXPECT_EQ(bundle_get_val(b, "absent"), nullptr);

    std::vector<std::pair<std::string, std::string>> seen;
    bundle_iterate(
        b,
        [](const char* key, const char* val, void* data) {
            static_cast<std::vector<std::pair<std::string, std::string>>*>(data)->emplace_back(key,
                                                                                               val);
        },
        &seen);
    const std::vector<std::pair<std::string, std::string>> expected = {
        {"zeta", "1"}, {"alpha", "2"}, {"mid", ""}};
    EXPECT_EQ(seen, expected);
    EXPECT_EQ(bundle_free(b), BUNDLE_ERROR_NONE);
    EXPECT_EQ(bundle_free(nullptr), BUNDLE_ERROR_INVALID_PARAMETER);
}

TEST(HostWatchdog, PingsSystemdOnlyWhenStartedByIt) {
    unsetenv("NOTIFY_SOCKET");
    EXPECT_EQ(smart_deadlock_register_watchdog_service(60), 0);
    EXPECT_EQ(smart_deadlock_watchdog_notify(), 0);

    // A notification socket of our own stands in for systemd.
    char dir[] = "/tmp/quillon-notify-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    const std::string path = std::string(dir) + "/notify";
    int sock = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ASSERT_GE(sock, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    ASSERT_EQ(bind(sock, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    setenv("NOTIFY_SOCKET", path.c_str(), 1);
    EXPECT_EQ(smart_deadlock_watchdog_notify(), 0);
    pollfd ready{sock, POLLIN, 0};
    ASSERT_EQ(poll(&ready, 1, 5000), 1);
    char message[64] = {};
    ssize_t n = recv(sock, message, sizeof(message) - 1, 0);
    ASSERT_GT(n, 0);
    EXPECT_STREQ(message, "WATCHDOG=1");

    // A socket that is gone is a failure the daemon logs.
    close(sock);
    unlink(path.c_str());
    rmdir(dir);
    EXPECT_LT(smart_deadlock_watchdog_notify(), 0);
    unsetenv("NOTIFY_SOCKET");
    EXPECT_EQ(smart_deadlock_unregister_watchdog_service(), 0);
}

TEST(HostClock, ReadsTheSystemWallClock) {
    timespec before{}, now{}, after{};
    clock_gettime(CLOCK_REALTIME, &before);
    ASSERT_EQ(realtime_clock_get(&now), 0);
    clock_gettime(CLOCK_REALTIME, &after);
    EXPECT_GE(now.tv_sec, before.tv_sec);
    EXPECT_LE(now.tv_sec, after.tv_sec);
    EXPECT_NE(realtime_clock_get(nullptr), 0);
}

}  // namespace
