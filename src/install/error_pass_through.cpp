#include "install/error_pass_through.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>

#include "platform/platform.h"

namespace bwk::errorPassThrough {

namespace {

constexpr size_t kPipeBytes = 1024 * 1024;
constexpr size_t kChunk = 256 * 1024;

struct State {
  int original = -1;  // the standard error the process had
  int readEnd = -1;   // non-blocking
  int wakeRead = -1, wakeWrite = -1;
  size_t keptBytes = 0;
  std::mutex mutex;
  std::condition_variable drained;
  // Guarded by mutex.
  bool done = false;
  std::string tail;
  bool cut = false;
};

// Lives until the process ends: the thread may still run while exit handlers do.
State* state = nullptr;

bool makePipe(int ends[2]) {
  if (::pipe(ends) != 0) return false;
  for (int i = 0; i < 2; ++i) ::fcntl(ends[i], F_SETFD, FD_CLOEXEC);
  return true;
}

void writeAll(int fd, const char* data, size_t size) {
  while (size > 0) {
    ssize_t written = ::write(fd, data, size);
    if (written < 0) {
      if (errno == EINTR) continue;
      return;  // the original standard error is gone: the output is dropped, as it was before
    }
    data += written;
    size -= static_cast<size_t>(written);
  }
}

void keep(State& s, const char* data, size_t size) {
  std::lock_guard<std::mutex> lock(s.mutex);
  if (size >= s.keptBytes) {
    s.cut = s.cut || !s.tail.empty() || size > s.keptBytes;
    s.tail.assign(data + size - s.keptBytes, s.keptBytes);
    return;
  }
  s.tail.append(data, size);
  // Cut back to the kept size only now and then: one move per kept size passed through.
  if (s.tail.size() > 2 * s.keptBytes) {
    s.tail.erase(0, s.tail.size() - s.keptBytes);
    s.cut = true;
  }
}

// Passes on what the pipe holds now. False at its end (no writer is left).
bool passOnAvailable(State& s, char* buffer) {
  for (;;) {
    ssize_t got = ::read(s.readEnd, buffer, kChunk);
    if (got > 0) {
      writeAll(s.original, buffer, static_cast<size_t>(got));
      keep(s, buffer, static_cast<size_t>(got));
    } else if (got == 0) {
      return false;
    } else if (errno != EINTR) {
      return true;  // empty for now
    }
  }
}

void drain(State& s) {
  std::unique_ptr<char[]> buffer(new char[kChunk]);
  for (;;) {
    pollfd watched[2] = {{s.readEnd, POLLIN, 0}, {s.wakeRead, POLLIN, 0}};
    if (::poll(watched, 2, -1) < 0) {
      // Writers must never wait on a pipe nobody reads: without poll (short of memory), look
      // every millisecond.
      if (errno != EINTR) std::this_thread::sleep_for(std::chrono::milliseconds(1));
      watched[0].revents = POLLIN;
      watched[1].revents = 0;
    }
    if (watched[0].revents && !passOnAvailable(s, buffer.get())) break;
    if (watched[1].revents) {
      // finish() has given descriptor 2 back: what this process wrote is all in the pipe.
      passOnAvailable(s, buffer.get());
      break;
    }
  }
  std::lock_guard<std::mutex> lock(s.mutex);
  s.done = true;
  s.drained.notify_all();
}

}  // namespace

bool start(size_t keptBytes) {
  if (state) return true;
  std::fflush(stderr);
  int original = ::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
  if (original < 0) return false;
  int data[2], wake[2];
  if (!makePipe(data)) {
    ::close(original);
    return false;
  }
  if (!makePipe(wake)) {
    for (int fd : {original, data[0], data[1]}) ::close(fd);
    return false;
  }
  ::fcntl(data[0], F_SETFL, O_NONBLOCK);
  // Fewer turns between the writer and the thread when much is written at once.
  platform::enlargePipe(data[0], kPipeBytes);
  if (::dup2(data[1], STDERR_FILENO) < 0) {
    for (int fd : {original, data[0], data[1], wake[0], wake[1]}) ::close(fd);
    return false;
  }
  ::close(data[1]);
  auto* s = new State;
  s->original = original;
  s->readEnd = data[0];
  s->wakeRead = wake[0];
  s->wakeWrite = wake[1];
  s->keptBytes = keptBytes;

  // The thread takes no signal: they belong to the runtime, and a write to a closed original
  // standard error then fails instead of raising SIGPIPE.
  sigset_t all, previous;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &previous);
  bool started = true;
  try {
    std::thread(drain, std::ref(*s)).detach();
  } catch (const std::system_error&) {
    started = false;
  }
  pthread_sigmask(SIG_SETMASK, &previous, nullptr);
  if (!started) {
    ::dup2(original, STDERR_FILENO);
    for (int fd : {original, data[0], wake[0], wake[1]}) ::close(fd);
    delete s;
    return false;
  }
  state = s;
  return true;
}

Tail finish() {
  State* s = state;
  if (!s) return {};
  state = nullptr;
  std::fflush(stderr);
  ::dup2(s->original, STDERR_FILENO);
  char wake = 1;
  while (::write(s->wakeWrite, &wake, 1) < 0 && errno == EINTR) {
  }
  std::unique_lock<std::mutex> lock(s->mutex);
  s->drained.wait_for(lock, std::chrono::seconds(2), [s] { return s->done; });
  Tail tail{s->tail, s->cut};
  if (tail.text.size() > s->keptBytes) {
    tail.text.erase(0, tail.text.size() - s->keptBytes);
    tail.cut = true;
  }
  return tail;
}

}  // namespace bwk::errorPassThrough
