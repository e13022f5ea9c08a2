// The host platform's log.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "dlog.h"
#include "host_test_support.h"
#include "log/log_writer.h"

namespace {

// Every line on stderr starts with its UTC time to the millisecond; the text without it.
std::string WithoutTimes(const std::string& text) {
    static const std::regex time(
        "^[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}Z ");
    std::istringstream lines(text);
    std::string line, out;
    while (std::getline(lines, line)) {
        std::smatch found;
        EXPECT_TRUE(std::regex_search(line, found, time)) << line.substr(0, 60);
        out += (found.empty() ? line : found.suffix().str()) + "\n";
    }
    return out;
}

// Sends everything written on stderr to a file until Finish(), times taken off.
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
    // What has reached the file so far, without waiting for queued lines.
    std::string Peek() const { return WithoutTimes(host_test::ReadFile(path_)); }
    std::string Finish() {
        if (saved_ >= 0) {
            // INFO lines may still be queued for the log's writer.
            host::log::Flush();
            fflush(stderr);
            dup2(saved_, STDERR_FILENO);
            close(saved_);
            saved_ = -1;
            text_ = WithoutTimes(host_test::ReadFile(path_));
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
    // The bytes written: the line after its 24-byte time and a blank.
    EXPECT_EQ(written, static_cast<int>(25 + strlen("I/PXM_CORE: pxmCore: Init(42) > START\n")));
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
              "W/QUILLON_HOST: QUILLON_LOG_LEVEL 'nonsense' is not one of debug, info, warn, "
              "error; using info\n"
              "I/T: info under nonsense\n");
}

TEST_F(HostLog, EveryCallIsOneWholeLine) {
    // A JOURNAL_STREAM that names another file is inherited, not ours: stderr is used.
    setenv("JOURNAL_STREAM", "1:1", 1);
    const std::string long_text(5000, 'x');
    const std::string exact(4096, 'e');
    // 4095 bytes, then a three-byte character that would straddle the cut.
    const std::string accented = std::string(4095, 'a') + "\xE2\x82\xAC" + "tail";
    StderrCapture capture;
    __dlog_print(LOG_ID_SYSTEM, DLOG_INFO, "T", "first\nsecond\n");
    __dlog_print(LOG_ID_SYSTEM, DLOG_INFO, "T", "%s", long_text.c_str());
    __dlog_print(LOG_ID_SYSTEM, DLOG_INFO, "T", "%s", exact.c_str());
    __dlog_print(LOG_ID_SYSTEM, DLOG_INFO, "T", "%s", accented.c_str());
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
    // Long messages are cut at 4 KB, saying how much went.
    ASSERT_TRUE(std::getline(lines, line));
    EXPECT_EQ(line, "I/T: " + long_text.substr(0, 4096) + "\xE2\x80\xA6[904 bytes cut]");
    ASSERT_TRUE(std::getline(lines, line));
    EXPECT_EQ(line, "I/T: " + exact);
    ASSERT_TRUE(std::getline(lines, line));
    EXPECT_EQ(line, "I/T: " + std::string(4095, 'a') + "\xE2\x80\xA6[7 bytes cut]");
    const std::regex whole("I/T: thread [0-3] line [0-9]+ p{300}");
    int count = 0;
    while (std::getline(lines, line)) {
        EXPECT_TRUE(std::regex_match(line, whole)) << line.substr(0, 80);
        ++count;
    }
    EXPECT_EQ(count, 800);
}

TEST_F(HostLog, WarningsAreWrittenBeforeTheCallReturnsAndInfoLinesFollowInOrder) {
    StderrCapture capture;
    // Many INFO lines queue up; the WARN after them writes them all, first.
    for (int i = 0; i < 500; ++i)
        __dlog_print(LOG_ID_SYSTEM, DLOG_INFO, "T", "queued %d", i);
    __dlog_print(LOG_ID_SYSTEM, DLOG_WARN, "T", "warning");
    std::string expected;
    for (int i = 0; i < 500; ++i)
        expected += "I/T: queued " + std::to_string(i) + "\n";
    expected += "W/T: warning\n";
    EXPECT_EQ(capture.Peek(), expected);

    // An INFO line with nothing after it still reaches stderr by itself, soon.
    __dlog_print(LOG_ID_SYSTEM, DLOG_INFO, "T", "alone");
    expected += "I/T: alone\n";
    std::string seen;
    for (int tries = 0; tries < 500 && seen != expected; ++tries) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        seen = capture.Peek();
    }
    EXPECT_EQ(seen, expected);
}

}  // namespace
