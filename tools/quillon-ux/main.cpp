// quillon-ux: the prompt application ("org.nuvak.quillon-ux"). The daemon launches it with
// the device's bundle as arguments; it answers through pxm_feedback_ux. There is no window
// yet, so it answers by script (QUILLON_UX_ANSWER, QUILLON_UX_DELAY_MS).
#include <glib-unix.h>
#include <glib.h>
#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "feedback_call.h"
#include "prompt_request.h"
#include "script_answer.h"

namespace {

constexpr int kExitAnswered = 0;
constexpr int kExitNotDelivered = 1;
constexpr int kExitBadInput = 2;

const char kUsage[] =
    "usage: quillon-ux --DEVICENAME=NAME --BTMAC=MAC --WIFIMAC=MAC --P2PMAC=MAC\n"
    "                  --DEVTYPE=N --DEVICON=N --MIRRORINGSUPPORT=N --NOUX=N --UXALWAYS=N\n"
    "                  --MIRRORINGID=ID --ZELID=ID\n"
    "\n"
    "The prompt application of Quillon (app id \"org.nuvak.quillon-ux\"). The daemon launches\n"
    "it with the device's bundle, one \"--KEY=VALUE\" argument per bundle entry in the bundle's\n"
    "order (the value is everything after the first '='). All eleven keys are required, once\n"
    "each, in any order; the five N are decimal integers. It answers the daemon with\n"
    "pxm_feedback_ux (org.nuvak.quillon.UxInterface) on the system bus.\n"
    "\n"
    "environment:\n"
    "  QUILLON_UX_ANSWER     allow (status 0), deny (1), undecided (2), or none: never answer\n"
    "                        and wait to be terminated. Required: there is no window yet.\n"
    "  QUILLON_UX_DELAY_MS   wait this many milliseconds before answering (default 0)\n"
    "  DBUS_SYSTEM_BUS_ADDRESS  the system bus to answer on\n"
    "\n"
    "exit status: 0 answered, or terminated (SIGTERM, SIGINT) before answering;\n"
    "             1 the answer could not be delivered; 2 bad arguments or environment\n";

struct Run {
    GMainLoop* loop = nullptr;
    quillon_ux::PromptRequest request;
    quillon_ux::ScriptAnswer answer;
    int status = kExitAnswered;
};

gboolean OnTerminate(gpointer data) {
    // The daemon closes a prompt it no longer waits for; that is a normal end.
    auto* run = static_cast<Run*>(data);
    run->status = kExitAnswered;
    g_main_loop_quit(run->loop);
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
    if (!quillon_ux::ReadScriptAnswer(std::getenv("QUILLON_UX_ANSWER"),
                                      std::getenv("QUILLON_UX_DELAY_MS"), &run.answer, &error))
        return BadInput(error);

    run.loop = g_main_loop_new(nullptr, FALSE);
    if (run.answer.answers) {
        if (run.answer.delay_ms > 0)
            std::fprintf(stderr, "quillon-ux: answering status %d in %u ms\n", run.answer.status,
                         run.answer.delay_ms);
        g_timeout_add(run.answer.delay_ms, OnAnswerDue, &run);
    } else {
        std::fprintf(stderr, "quillon-ux: no answer will be given; waiting to be terminated\n");
    }
    g_main_loop_run(run.loop);
    g_main_loop_unref(run.loop);
    return run.status;
}
