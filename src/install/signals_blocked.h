#pragma once
// Termination signals are for the thread that reads the archive (it may be waiting in a read
// that they must interrupt): a thread started while this is in scope begins with every signal
// blocked.
#include <pthread.h>

#include <csignal>

namespace bwk {

class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &previous_);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t previous_;
};

}  // namespace bwk
