#pragma once
// A private X server for the window tests.
#include <cstdio>

#include "../install/icon_files.h"
#include "e2e_support.h"

namespace bwk::test {

// An X server of our own on a free display number, gone with the object.
class Xvfb {
 public:
  static constexpr int kWidth = 800, kHeight = 600;
  Xvfb()
      : server_({"/usr/bin/Xvfb", "-displayfd", "1", "-screen", "0", "800x600x24", "-nolisten", "tcp", "-noreset"},
                {}) {
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

  struct Geometry {
    int x = 0, y = 0, width = 0, height = 0;
  };
  Geometry geometry(const std::string& window) const {
    Geometry g;
    std::string line =
        xdotool("getwindowgeometry --shell " + window + " | (eval \"$(cat)\"; echo $X $Y $WIDTH $HEIGHT)");
    std::sscanf(line.c_str(), "%d %d %d %d", &g.x, &g.y, &g.width, &g.height);
    return g;
  }
  // The whole screen as RGB bytes, row by row.
  std::string screenshot() const { return shell("import -display " + display_ + " -window root -depth 8 rgb:-").out; }

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
