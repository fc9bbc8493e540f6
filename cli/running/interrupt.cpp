#include "cli/running/interrupt.h"

#include <csignal>
#include <initializer_list>

namespace cli {
namespace {

tavo::CancelToken token;

void note(int) {
    token.cancel();
}

}  // namespace

void noteSignals() {
    struct sigaction action {};
    action.sa_handler = note;
    action.sa_flags = SA_RESTART;  // USB and file calls must not see EINTR
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction before {};
        sigaction(number, nullptr, &before);
        // nohup and background jobs of scripts have it ignored, and mean it.
        if (before.sa_handler != SIG_IGN) sigaction(number, &action, nullptr);
    }
    // A closed pipe or a file-size limit must not kill us while the Neuron is held in reset.
    for (const int number : {SIGPIPE, SIGXFSZ}) std::signal(number, SIG_IGN);
}

const tavo::CancelToken& interruptToken() {
    return token;
}

bool isInterruptNoted() {
    return token.isCancelled();
}

}  // namespace cli
