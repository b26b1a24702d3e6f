#include "tools/files/interrupt.h"

#include <signal.h>

#include <atomic>
#include <initializer_list>

namespace tvsort::tools {

namespace {

// Written by a handler in whatever thread the system has chosen.
std::atomic<int> receivedSignal = 0;
static_assert(std::atomic<int>::is_always_lock_free);

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
    if (const int signalNumber = receivedSignal) throw Interrupted(signalNumber);
}

void wakeIfInterrupted(pthread_t thread) {
    if (const int signalNumber = receivedSignal) pthread_kill(thread, signalNumber);
}

}  // namespace tvsort::tools
