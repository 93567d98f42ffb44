#pragma once
// A private X server for the window tests, processes started in the background, screenshots
// and the small images that go into icon files.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <thread>

#include "../install/icon_files.h"
#include "e2e_support.h"

extern char** environ;

namespace bwk::test {

inline double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// A process started with its standard output and error on pipes of ours; `extraEnv` entries
// as for run().
class Background {
 public:
  Background(std::vector<std::string> argv, const std::vector<std::string>& extraEnv) {
    std::vector<std::string> env;
    for (char** e = environ; *e; ++e) env.emplace_back(*e);
    for (const std::string& x : extraEnv) {
      std::string name = x.substr(0, x.find('='));
      std::erase_if(env, [&](const std::string& old) { return old.compare(0, name.size() + 1, name + "=") == 0; });
      if (x.find('=') != std::string::npos) env.push_back(x);
    }
    int out[2], err[2];
    if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_adddup2(&actions, err[1], 2);
    std::vector<char*> a, e;
    for (std::string& s : argv) a.push_back(s.data());
    for (std::string& s : env) e.push_back(s.data());
    a.push_back(nullptr);
    e.push_back(nullptr);
    start_ = std::chrono::steady_clock::now();
    if (posix_spawn(&pid_, a[0], &actions, nullptr, a.data(), e.data()) != 0) pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
    close(out[1]);
    close(err[1]);
    fds_[0] = out[0];
    fds_[1] = err[0];
  }
  // Asks the process to end, and ends it if it has not within two seconds.
  ~Background() {
    if (pid_ > 0 && !reaped_) {
      kill(pid_, SIGTERM);
      pid_t done = 0;
      for (int i = 0; i < 200 && (done = waitpid(pid_, nullptr, WNOHANG)) == 0; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
      if (done == 0 && kill(pid_, SIGKILL) == 0) waitpid(pid_, nullptr, 0);
    }
    close(fds_[0]);
    close(fds_[1]);
  }
  pid_t pid() const { return pid_; }
  std::chrono::steady_clock::time_point started() const { return start_; }

  struct Result {
    int status = -1;             // exit status, 128+signal, -1 when it did not end in time
    bool streamsClosed = false;  // both pipes reached end of file before the deadline
    std::string out, err;
  };
  // The first line of standard output, read for at most `seconds`.
  std::string line(double seconds) {
    std::string text;
    char c;
    pollfd p{fds_[0], POLLIN, 0};
    while (poll(&p, 1, static_cast<int>(seconds * 1000)) > 0 && read(fds_[0], &c, 1) == 1 && c != '\n') text += c;
    return text;
  }
  // Reads both pipes to their end and waits for the process, for at most `seconds` from its start.
  Result finish(double seconds) {
    Result r;
    auto deadline = start_ + std::chrono::duration<double>(seconds);
    bool open[2] = {true, true};
    while ((open[0] || open[1]) && std::chrono::steady_clock::now() < deadline) {
      pollfd p[2] = {{open[0] ? fds_[0] : -1, POLLIN, 0}, {open[1] ? fds_[1] : -1, POLLIN, 0}};
      if (poll(p, 2, 50) <= 0) continue;
      char buffer[4096];
      for (int i = 0; i < 2; ++i) {
        if (!p[i].revents) continue;
        ssize_t n = read(p[i].fd, buffer, sizeof buffer);
        if (n > 0) (i == 0 ? r.out : r.err).append(buffer, static_cast<size_t>(n));
        else open[i] = false;
      }
    }
    r.streamsClosed = !open[0] && !open[1];
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
  int fds_[2] = {-1, -1};
  bool reaped_ = false;
  std::chrono::steady_clock::time_point start_;
};

// An X server of our own on a free display number, gone with the object.
class Xvfb {
 public:
  static constexpr int kWidth = 800, kHeight = 600;
  Xvfb() : server_({"/usr/bin/Xvfb", "-displayfd", "1", "-screen", "0", "800x600x24", "-nolisten", "tcp", "-noreset"}, {}) {
    std::string number = server_.line(10);
    if (!number.empty()) display_ = ":" + number;
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
    std::string line = xdotool("getwindowgeometry --shell " + window + " | (eval \"$(cat)\"; echo $X $Y $WIDTH $HEIGHT)");
    std::sscanf(line.c_str(), "%d %d %d %d", &g.x, &g.y, &g.width, &g.height);
    return g;
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
  Background server_;
  std::string display_;
};

// Pixels inside `area` for which `counts(pixel of a, pixel of b)` holds; each pixel is three bytes.
template <typename Predicate>
int countPixels(const std::string& a, const std::string& b, const Xvfb::Geometry& area, Predicate counts) {
  int n = 0;
  for (int y = area.y; y < area.y + area.height && y < Xvfb::kHeight; ++y)
    for (int x = area.x; x < area.x + area.width && x < Xvfb::kWidth; ++x) {
      size_t i = (static_cast<size_t>(y) * Xvfb::kWidth + static_cast<size_t>(x)) * 3;
      if (i + 2 < a.size() && i + 2 < b.size() && counts(a.substr(i, 3), b.substr(i, 3))) ++n;
    }
  return n;
}

}  // namespace bwk::test
