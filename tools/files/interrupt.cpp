#include "tools/files/interrupt.h"

#include <signal.h>

#include <initializer_list>

namespace tvsort::tools {

namespace {

volatile sig_atomic_t receivedSignal = 0;

void noteSignal(int signalNumber) {
    receivedSignal = signalNumber;
}

void handle(int signalNumber, void (*handler)(int)) {
    struct sigaction action = {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    sigaction(signalNumber, &action, nullptr);
}

}  // namespace

void catchInterrupts() {
    for (const int signalNumber : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        struct sigaction inherited = {};
        sigaction(signalNumber, nullptr, &inherited);
        // What the caller wants ignored (nohup, a background job) stays ignored.
        if (inherited.sa_handler != SIG_IGN) handle(signalNumber, noteSignal);
    }
    for (const int signalNumber : {SIGPIPE, SIGXFSZ})
        handle(signalNumber, SIG_IGN);
}

void throwIfInterrupted() {
    if (receivedSignal != 0) throw Interrupted(receivedSignal);
}

}  // namespace tvsort::tools
