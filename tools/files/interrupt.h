// Ctrl-C and its like, turned into an exception, so that everything is cleaned up on the way out.
//
// A handler that cleans up itself could do so little; instead it leaves a note, and whoever works
// or waits for long looks at it often (`throwIfInterrupted`). Waiting calls are not restarted after
// a signal, so that the note is seen at once.

#pragma once

#include <pthread.h>

#include <exception>

namespace tvsort::tools {

class Interrupted : public std::exception {
  public:
    explicit Interrupted(int signalNumber) : signalNumber_(signalNumber) {}
    const char* what() const noexcept override { return "interrupted"; }
    int signalNumber() const { return signalNumber_; }

  private:
    int signalNumber_;
};

// Catches SIGINT, SIGTERM, SIGHUP and SIGQUIT from here on. Signals that a failed write would bring
// (a closed pipe, a file at its size limit) are ignored: the write says what went wrong.
void catchInterrupts();

// Throws `Interrupted` when one of the signals has come.
void throwIfInterrupted();

// When one of the signals has come, ends a call in which this thread waits. The system gives a
// signal to one thread only.
void wakeIfInterrupted(pthread_t thread);

}  // namespace tvsort::tools
