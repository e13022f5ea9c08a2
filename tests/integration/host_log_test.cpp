// The host platform's log: one whole line per call on stderr, with its UTC time, level letter
// and tag, filtered by QUILLON_LOG_LEVEL; warnings written before the call returns.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "dlog.h"
#include "host_test_support.h"
#include "log/log_writer.h"

namespace {

// Sends stderr to a file for the life of the object; Text() is what reached it so far,
// each line's leading UTC time (to the millisecond) checked and taken off.
class HostLog : public ::testing::Test {
protected:
    void SetUp() override {
        unsetenv("JOURNAL_STREAM");
        unsetenv("QUILLON_LOG_LEVEL");
        char pattern[] = "/tmp/quillon-stderr-XXXXXX";
        int fd = mkstemp(pattern);
        ASSERT_GE(fd, 0);
        path_ = pattern;
        fflush(stderr);
        saved_ = dup(STDERR_FILENO);
        dup2(fd, STDERR_FILENO);
        close(fd);
    }
    void TearDown() override {
        host::log::Flush();
        dup2(saved_, STDERR_FILENO);
        close(saved_);
        unlink(path_.c_str());
    }
    std::string Text(bool flush = true) {
        if (flush)
            host::log::Flush();  // INFO lines may still be queued for the log's writer
        static const std::regex time(
            "^[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}Z ");
        std::istringstream lines(host_test::ReadFile(path_));
        std::string line, out;
        while (std::getline(lines, line)) {
            std::smatch found;
            EXPECT_TRUE(std::regex_search(line, found, time)) << line.substr(0, 60);
            out += (found.empty() ? line : found.suffix().str()) + "\n";
        }
        return out;
    }
    std::string path_;
    int saved_ = -1;
};

TEST_F(HostLog, EveryCallIsOneWholeLine) {
    // A JOURNAL_STREAM that names another file is inherited, not ours: stderr is used.
    setenv("JOURNAL_STREAM", "1:1", 1);
    const std::string long_text(5000, 'x'), exact(4096, 'e');
    // 4095 bytes, then a three-byte character that would straddle the cut.
    const std::string accented = std::string(4095, 'a') + "\xE2\x82\xAC" + "tail";
    for (const std::string& text : {std::string("first\nsecond\n"), long_text, exact, accented})
        __dlog_print(LOG_ID_SYSTEM, DLOG_INFO, "T", "%s", text.c_str());
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t, &long_text] {
            for (int i = 0; i < 200; ++i)
                __dlog_print(LOG_ID_SYSTEM, DLOG_INFO, "T", "thread %d line %d %.300s", t, i,
                             long_text.c_str());
        });
    for (auto& thread : threads)
        thread.join();
    // Long messages are cut at 4 KB on a character boundary, saying how much went.
    const std::string text = Text(),
                      head = "I/T: first\\nsecond\nI/T: " + long_text.substr(0, 4096) +
                             "\xE2\x80\xA6[904 bytes cut]\nI/T: " + exact +
                             "\nI/T: " + std::string(4095, 'a') + "\xE2\x80\xA6[7 bytes cut]\n";
    ASSERT_EQ(text.substr(0, head.size()), head);
    std::istringstream lines(text.substr(head.size()));
    const std::regex whole("I/T: thread [0-3] line [0-9]+ x{300}");
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count)
        EXPECT_TRUE(std::regex_match(line, whole)) << line.substr(0, 80);
    EXPECT_EQ(count, 800);
}

TEST_F(HostLog, LinesFollowTheLevelFilterAndWarningsAreWrittenBeforeTheCallReturns) {
    __dlog_print(LOG_ID_SYSTEM, DLOG_INFO, "PXM_CORE", "%s: %s(%d) > START", "pxmCore", "Init", 42);
    EXPECT_EQ(__dlog_print(LOG_ID_SYSTEM, DLOG_DEBUG, "PXM_CORE", "hidden by default"), 0);
    for (const char* level : {"warn", "error", "debug", "nonsense"}) {
        setenv("QUILLON_LOG_LEVEL", level, 1);
        for (int prio : {DLOG_DEBUG, DLOG_INFO, DLOG_WARN, DLOG_ERROR})
            __dlog_print(LOG_ID_SYSTEM, prio, "T", "%d under %s", prio, level);
    }
    unsetenv("QUILLON_LOG_LEVEL");
    std::string expected =
        "I/PXM_CORE: pxmCore: Init(42) > START\n"
        "W/T: 5 under warn\nE/T: 6 under warn\nE/T: 6 under error\n"
        "D/T: 3 under debug\nI/T: 4 under debug\nW/T: 5 under debug\nE/T: 6 under debug\n"
        "W/QUILLON_HOST: QUILLON_LOG_LEVEL 'nonsense' is not one of debug, info, warn, error; "
        "using info\nI/T: 4 under nonsense\nW/T: 5 under nonsense\nE/T: 6 under nonsense\n";
    // Many INFO lines queue up; the WARN after them writes them all, first.
    for (int i = 0; i < 500; ++i) {
        __dlog_print(LOG_ID_SYSTEM, DLOG_INFO, "T", "queued %d", i);
        expected += "I/T: queued " + std::to_string(i) + "\n";
    }
    __dlog_print(LOG_ID_SYSTEM, DLOG_WARN, "T", "warning");
    expected += "W/T: warning\n";
    EXPECT_EQ(Text(false), expected);
    // An INFO line with nothing after it still reaches stderr by itself, soon.
    __dlog_print(LOG_ID_SYSTEM, DLOG_INFO, "T", "alone");
    expected += "I/T: alone\n";
    for (int tries = 0; tries < 500 && Text(false) != expected; ++tries)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(Text(false), expected);
}

}  // namespace
