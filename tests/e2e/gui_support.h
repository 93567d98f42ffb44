#pragma once
// A private X server for the window tests and processes started in the background.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <thread>

#include "../install/icon_files.h"
#include "e2e_support.h"

namespace bwk::test {

inline double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}
inline void sleepMs(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

// A process started with its standard output and error going to files of ours; `extraEnv`
// entries as for run(). Ended when the object goes, if it has not ended by then.
class Background {
 public:
  Background(std::vector<std::string> argv, const std::vector<std::string>& extraEnv) {
    std::vector<std::string> env = environmentWith(extraEnv);
    std::vector<char*> a, e;
    for (std::string& s : argv) a.push_back(s.data());
    for (std::string& s : env) e.push_back(s.data());
    a.push_back(nullptr);
    e.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, out_.c_str(), O_WRONLY | O_CREAT, 0600);
    posix_spawn_file_actions_addopen(&actions, 2, err_.c_str(), O_WRONLY | O_CREAT, 0600);
    start_ = std::chrono::steady_clock::now();
    if (posix_spawn(&pid_, a[0], &actions, nullptr, a.data(), e.data()) != 0) pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
  }
  ~Background() {
    if (pid_ <= 0 || reaped_) return;
    kill(pid_, SIGTERM);
    for (int i = 0; i < 200 && waitpid(pid_, nullptr, WNOHANG) == 0; ++i) sleepMs(10);
    if (kill(pid_, SIGKILL) == 0) waitpid(pid_, nullptr, 0);
  }
  pid_t pid() const { return pid_; }
  std::chrono::steady_clock::time_point started() const { return start_; }

  // The first line of standard output, waited for at most `seconds`.
  std::string line(double seconds) {
    std::string text;
    while ((text = readFile(out_)).find('\n') == std::string::npos && secondsSince(start_) < seconds) sleepMs(10);
    return text.substr(0, text.find('\n'));
  }
  // Status (exit status, 128+signal, -1 when it did not end within `seconds` of its start) and output.
  RunResult finish(double seconds) {
    RunResult r;
    int raw = 0;
    pid_t done = 0;
    while ((done = waitpid(pid_, &raw, WNOHANG)) == 0 && secondsSince(start_) < seconds) sleepMs(10);
    if (done == pid_) r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
    reaped_ = done == pid_;
    r.out = readFile(out_);
    r.err = readFile(err_);
    return r;
  }
  using Result = RunResult;

 private:
  TempDir dir_;
  std::string out_ = dir_ / "out", err_ = dir_ / "err";
  pid_t pid_ = -1;
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
    for (auto start = std::chrono::steady_clock::now(); secondsSince(start) < seconds; sleepMs(20)) {
      std::string id = xdotool("search --onlyvisible --name '" + pattern + "'");
      if (!id.empty()) return id.substr(0, id.find('\n'));
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
  // The whole screen as RGB bytes, row by row.
  std::string screenshot() const {
    return shell("import -display " + display_ + " -window root -depth 8 rgb:-").out;
  }

 private:
  Background server_;
  std::string display_;
};

// Pixels inside `area` for which `counts(pixel of a, pixel of b)` holds; each pixel is three bytes.
template <typename Predicate>
int countPixels(const std::string& a, const std::string& b, const Xvfb::Geometry& area, Predicate counts) {
  int n = 0;
  for (int y = area.y; y < std::min(area.y + area.height, Xvfb::kHeight); ++y)
    for (int x = area.x; x < std::min(area.x + area.width, Xvfb::kWidth); ++x) {
      size_t i = (static_cast<size_t>(y) * Xvfb::kWidth + static_cast<size_t>(x)) * 3;
      if (i + 2 < std::min(a.size(), b.size()) && counts(a.substr(i, 3), b.substr(i, 3))) ++n;
    }
  return n;
}

}  // namespace bwk::test
