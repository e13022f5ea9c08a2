// quillon-ux: the prompt application ("org.nuvak.quillon-ux"). The daemon launches it with
// the device's bundle as arguments; it shows the person a window (prompt_window.cpp) and
// answers through pxm_feedback_ux. Without a display it answers by script
// (QUILLON_UX_ANSWER, QUILLON_UX_DELAY_MS), which is how tests and headless boxes run it.
#include <glib-unix.h>
#include <glib.h>
#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "feedback_call.h"
#include "prompt_request.h"
#include "prompt_window.h"
#include "script_answer.h"

namespace {

constexpr int kExitAnswered = 0;
constexpr int kExitNotDelivered = 1;
constexpr int kExitBadInput = 2;
// The daemon's own wait for an answer.
constexpr unsigned kDaemonWaitMs = 35000;

const char kUsage[] =
    "usage: quillon-ux --DEVICENAME=NAME --BTMAC=MAC --WIFIMAC=MAC --P2PMAC=MAC\n"
    "                  --DEVTYPE=N --DEVICON=N --MIRRORINGSUPPORT=N --NOUX=N --UXALWAYS=N\n"
    "                  --MIRRORINGID=ID --ZELID=ID\n"
    "\n"
    "The prompt application of Quillon (app id \"org.nuvak.quillon-ux\"). The daemon launches\n"
    "it with the device's bundle, one \"--KEY=VALUE\" argument per bundle entry in the bundle's\n"
    "order (the value is everything after the first '='). All eleven keys are required, once\n"
    "each, in any order; the five N are decimal integers. It shows a window asking whether\n"
    "the device may connect (Allow, Deny, Not now; Escape is Not now) and answers the daemon\n"
    "with pxm_feedback_ux (org.nuvak.quillon.UxInterface) on the system bus. The window\n"
    "closes without answering when the daemon's 35 s wait is over.\n"
    "\n"
    "environment:\n"
    "  DISPLAY, WAYLAND_DISPLAY  where the window goes (X11 or Wayland)\n"
    "  QUILLON_UX_ANSWER     answer by script, no window: allow (status 0), deny (1),\n"
    "                        undecided (2), or none: never answer and wait to be terminated\n"
    "  QUILLON_UX_DELAY_MS   with QUILLON_UX_ANSWER: wait this many milliseconds before\n"
    "                        answering (default 0)\n"
    "  QUILLON_UX_WAIT_MS    a test aid: the window's countdown in milliseconds (default 35000)\n"
    "  DBUS_SYSTEM_BUS_ADDRESS  the system bus to answer on\n"
    "\n"
    "exit status: 0 answered, expired, or terminated (SIGTERM, SIGINT) before answering;\n"
    "             1 the answer could not be delivered;\n"
    "             2 bad arguments or environment, or no display and no QUILLON_UX_ANSWER\n";

struct Run {
    GMainLoop* loop = nullptr;
    quillon_ux::PromptRequest request;
    quillon_ux::ScriptAnswer answer;
    int status = kExitAnswered;
    bool terminated = false;
    std::function<void()> close_window;
};

gboolean OnTerminate(gpointer data) {
    // The daemon closes a prompt it no longer waits for; that is a normal end.
    auto* run = static_cast<Run*>(data);
    run->terminated = true;
    run->status = kExitAnswered;
    if (run->loop)
        g_main_loop_quit(run->loop);
    if (run->close_window)
        run->close_window();
    return G_SOURCE_CONTINUE;
}

gboolean OnAnswerDue(gpointer data) {
    auto* run = static_cast<Run*>(data);
    std::string error;
    if (quillon_ux::SendFeedback(run->request, run->answer.status, &error)) {
        std::fprintf(stderr, "quillon-ux: answered status %d for '%s'\n", run->answer.status,
                     run->request.device_name.c_str());
        run->status = kExitAnswered;
    } else {
        std::fprintf(stderr, "quillon-ux: %s\n", error.c_str());
        run->status = kExitNotDelivered;
    }
    g_main_loop_quit(run->loop);
    return G_SOURCE_REMOVE;
}

int BadInput(const std::string& message) {
    std::fprintf(stderr, "quillon-ux: %s\n(run quillon-ux --help for the usage)\n",
                 message.c_str());
    return kExitBadInput;
}

bool Set(const char* name) {
    const char* value = std::getenv(name);
    return value && *value;
}

int RunScript(Run* run) {
    run->loop = g_main_loop_new(nullptr, FALSE);
    if (run->answer.answers) {
        if (run->answer.delay_ms > 0)
            std::fprintf(stderr, "quillon-ux: answering status %d in %u ms\n", run->answer.status,
                         run->answer.delay_ms);
        g_timeout_add(run->answer.delay_ms, OnAnswerDue, run);
    } else {
        std::fprintf(stderr, "quillon-ux: no answer will be given; waiting to be terminated\n");
    }
    g_main_loop_run(run->loop);
    g_main_loop_unref(run->loop);
    run->loop = nullptr;
    return run->status;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    if (args.size() == 1 && args[0] == "--version") {
        std::printf("quillon-ux %s\n", QUILLON_VERSION);
        return 0;
    }
    if (args.size() == 1 && (args[0] == "--help" || args[0] == "-h")) {
        std::fputs(kUsage, stdout);
        return kExitAnswered;
    }
    Run run;
    // First, so that an early SIGTERM from the daemon already ends us cleanly.
    g_unix_signal_add(SIGTERM, OnTerminate, &run);
    g_unix_signal_add(SIGINT, OnTerminate, &run);
    std::string error;
    if (!quillon_ux::ParsePromptArguments(args, &run.request, &error))
        return BadInput(error);

    if (Set("QUILLON_UX_ANSWER")) {
        if (!quillon_ux::ReadScriptAnswer(std::getenv("QUILLON_UX_ANSWER"),
                                          std::getenv("QUILLON_UX_DELAY_MS"), &run.answer, &error))
            return BadInput(error);
        return RunScript(&run);
    }
    if (!Set("DISPLAY") && !Set("WAYLAND_DISPLAY"))
        return BadInput(
            "no display to show the prompt on (DISPLAY and WAYLAND_DISPLAY are unset) and no "
            "QUILLON_UX_ANSWER to answer by script");
    unsigned wait_ms = kDaemonWaitMs;
    if (Set("QUILLON_UX_WAIT_MS") &&
        !quillon_ux::ReadMilliseconds("QUILLON_UX_WAIT_MS", std::getenv("QUILLON_UX_WAIT_MS"),
                                      &wait_ms, &error))
        return BadInput(error);
    if (wait_ms == 0)
        return BadInput("QUILLON_UX_WAIT_MS must be at least 1 ms");
    int status = quillon_ux::RunPromptWindow(run.request, wait_ms, &run.close_window);
    return run.terminated ? kExitAnswered : status;
}
