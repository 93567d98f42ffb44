#pragma once
// A private X server for the window tests, processes started in the background, screenshots
// and the small images that go into icon files.
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <thread>

#include "../install/icon_files.h"
#include "e2e_support.h"

extern char** environ;

namespace bwk::test {

inline double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// A process started with its standard output and error on pipes of ours.
class Background {
 public:
  Background(const std::vector<std::string>& argv, const std::vector<std::string>& extraEnv) {
    std::vector<std::string> env;
    for (char** e = environ; *e; ++e) {
      std::string entry = *e, name = entry.substr(0, entry.find('='));
      bool replaced = false;
      for (const std::string& x : extraEnv) replaced |= x == name || text::startsWith(x, name + "=");
      if (!replaced) env.push_back(entry);
    }
    for (const std::string& x : extraEnv)
      if (x.find('=') != std::string::npos) env.push_back(x);
    int out[2], err[2];
    if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_adddup2(&actions, err[1], 2);
    std::vector<char*> a, e;
    std::vector<std::string> args = argv;
    for (std::string& s : args) a.push_back(s.data());
    for (std::string& s : env) e.push_back(s.data());
    a.push_back(nullptr);
    e.push_back(nullptr);
    start_ = std::chrono::steady_clock::now();
    if (posix_spawn(&pid_, args[0].c_str(), &actions, nullptr, a.data(), e.data()) != 0) pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
    close(out[1]);
    close(err[1]);
    outFd_ = out[0];
    errFd_ = err[0];
  }
  ~Background() {
    if (pid_ > 0 && !reaped_) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
    close(outFd_);
    close(errFd_);
  }
  pid_t pid() const { return pid_; }
  std::chrono::steady_clock::time_point started() const { return start_; }

  struct Result {
    int status = -1;          // exit status, 128+signal, -1 when it did not end in time
    bool streamsClosed = false;  // both pipes reached end of file before the deadline
    std::string out, err;
  };
  // Reads both pipes to their end and waits for the process, for at most `seconds`; a
  // process still running then is killed.
  Result finish(double seconds) {
    Result r;
    auto deadline = start_ + std::chrono::duration<double>(seconds);
    bool outOpen = true, errOpen = true;
    while (outOpen || errOpen) {
      int left = static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count());
      if (left <= 0) break;
      pollfd fds[2] = {{outOpen ? outFd_ : -1, POLLIN, 0}, {errOpen ? errFd_ : -1, POLLIN, 0}};
      if (poll(fds, 2, left) <= 0) continue;
      char buffer[4096];
      for (int i = 0; i < 2; ++i) {
        if (!fds[i].revents) continue;
        ssize_t n = read(fds[i].fd, buffer, sizeof buffer);
        if (n > 0) (i == 0 ? r.out : r.err).append(buffer, static_cast<size_t>(n));
        else (i == 0 ? outOpen : errOpen) = false;
      }
    }
    r.streamsClosed = !outOpen && !errOpen;
    int raw = 0;
    pid_t done = 0;
    while ((done = waitpid(pid_, &raw, WNOHANG)) == 0 && std::chrono::steady_clock::now() < deadline)
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    if (done == pid_) {
      reaped_ = true;
      r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
    }
    return r;
  }

 private:
  pid_t pid_ = -1;
  int outFd_ = -1, errFd_ = -1;
  bool reaped_ = false;
  std::chrono::steady_clock::time_point start_;
};

// An X server of our own on a free display number, gone with the object.
class Xvfb {
 public:
  static constexpr int kWidth = 800, kHeight = 600;
  Xvfb() {
    int fds[2];
    if (pipe(fds) != 0) return;
    std::vector<std::string> argv{"/usr/bin/Xvfb", "-displayfd", std::to_string(fds[1]), "-screen", "0",
                                  std::to_string(kWidth) + "x" + std::to_string(kHeight) + "x24", "-nolisten", "tcp", "-noreset"};
    std::vector<char*> a;
    for (std::string& s : argv) a.push_back(s.data());
    a.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    if (posix_spawn(&pid_, a[0], &actions, nullptr, a.data(), environ) != 0) pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
    close(fds[1]);
    std::string number;
    char c;
    pollfd p{fds[0], POLLIN, 0};
    while (poll(&p, 1, 10000) > 0 && read(fds[0], &c, 1) == 1 && c != '\n') number += c;
    close(fds[0]);
    if (!number.empty()) display_ = ":" + number;
  }
  ~Xvfb() {
    if (pid_ > 0) {
      kill(pid_, SIGTERM);
      waitpid(pid_, nullptr, 0);
    }
  }
  const std::string& display() const { return display_; }
  bool running() const { return !display_.empty(); }

  // xdotool's output, trimmed; empty when it found nothing.
  std::string xdotool(const std::string& arguments) const {
    std::string out = shell("DISPLAY=" + display_ + " xdotool " + arguments + " 2>/dev/null").out;
    while (!out.empty() && (out.back() == '\n' || out.back() == ' ')) out.pop_back();
    return out;
  }
  // Waits until a visible window's name matches `pattern` (a regular expression); its id or "".
  std::string waitForWindow(const std::string& pattern, double seconds) const {
    auto start = std::chrono::steady_clock::now();
    while (secondsSince(start) < seconds) {
      std::string id = xdotool("search --onlyvisible --name '" + pattern + "'");
      if (!id.empty()) return id.substr(0, id.find('\n'));
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return "";
  }

  struct Geometry { int x = 0, y = 0, width = 0, height = 0; };
  Geometry geometry(const std::string& window) const {
    Geometry g;
    for (const std::string& line : text::split(xdotool("getwindowgeometry --shell " + window), "\n")) {
      size_t eq = line.find('=');
      if (eq == std::string::npos) continue;
      int value = std::atoi(line.c_str() + eq + 1);
      std::string key = line.substr(0, eq);
      if (key == "X") g.x = value;
      if (key == "Y") g.y = value;
      if (key == "WIDTH") g.width = value;
      if (key == "HEIGHT") g.height = value;
    }
    return g;
  }

  // Asks a window to close as a window manager does (WM_DELETE_WINDOW). libX11 is opened at
  // run time: the tests link no X library.
  bool requestClose(const std::string& window) const {
    // Xlib's client message event, spelled out: Xlib's headers clash with the test framework.
    struct ClientMessage {
      int type;
      unsigned long serial;
      int sendEvent;
      void* display;
      unsigned long window, messageType;
      int format;
      long data[5];
    };
    union Event {
      ClientMessage message;
      long pad[24];
    };
    constexpr int kClientMessage = 33;
    void* x11 = dlopen("libX11.so.6", RTLD_NOW | RTLD_LOCAL);
    if (!x11) return false;
    auto open = reinterpret_cast<void* (*)(const char*)>(dlsym(x11, "XOpenDisplay"));
    auto atom = reinterpret_cast<unsigned long (*)(void*, const char*, int)>(dlsym(x11, "XInternAtom"));
    auto send = reinterpret_cast<int (*)(void*, unsigned long, int, long, Event*)>(dlsym(x11, "XSendEvent"));
    auto closeDisplay = reinterpret_cast<int (*)(void*)>(dlsym(x11, "XCloseDisplay"));
    void* d = open && atom && send && closeDisplay ? open(display_.c_str()) : nullptr;
    if (!d) return false;
    Event event{};
    event.message.type = kClientMessage;
    event.message.window = std::stoul(window);
    event.message.messageType = atom(d, "WM_PROTOCOLS", 0);
    event.message.format = 32;
    event.message.data[0] = static_cast<long>(atom(d, "WM_DELETE_WINDOW", 0));
    bool sent = send(d, event.message.window, 0, 0, &event) != 0;
    closeDisplay(d);  // flushes the request
    return sent;
  }

  // The whole screen as RGB bytes, row by row; also written as PNG to `png` when given.
  std::string screenshot(const std::string& png = "") const {
    std::string raw = "/tmp/bwk-shot-" + std::to_string(getpid()) + ".rgb";
    shell("import -display " + display_ + " -window root -depth 8 rgb:" + raw);
    std::string bytes = readFile(raw);
    unlink(raw.c_str());
    if (!png.empty()) shell("import -display " + display_ + " -window root " + png);
    return bytes;
  }

 private:
  pid_t pid_ = -1;
  std::string display_;
};

// Pixels inside `area` of two screenshots that differ, and pixels of one colour.
inline int changedPixels(const std::string& a, const std::string& b, const Xvfb::Geometry& area) {
  int changed = 0;
  for (int y = area.y; y < area.y + area.height && y < Xvfb::kHeight; ++y)
    for (int x = area.x; x < area.x + area.width && x < Xvfb::kWidth; ++x) {
      size_t i = (static_cast<size_t>(y) * Xvfb::kWidth + static_cast<size_t>(x)) * 3;
      if (i + 2 < a.size() && i + 2 < b.size() && a.compare(i, 3, b, i, 3) != 0) ++changed;
    }
  return changed;
}
inline int pixelsOfColour(const std::string& shot, const Xvfb::Geometry& area, unsigned char r, unsigned char g, unsigned char b) {
  int count = 0;
  for (int y = area.y; y < area.y + area.height && y < Xvfb::kHeight; ++y)
    for (int x = area.x; x < area.x + area.width && x < Xvfb::kWidth; ++x) {
      size_t i = (static_cast<size_t>(y) * Xvfb::kWidth + static_cast<size_t>(x)) * 3;
      if (i + 2 < shot.size() && static_cast<unsigned char>(shot[i]) == r && static_cast<unsigned char>(shot[i + 1]) == g &&
          static_cast<unsigned char>(shot[i + 2]) == b)
        ++count;
    }
  return count;
}

}  // namespace bwk::test
