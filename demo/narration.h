// How the hosts of the demo tell what they do: one line per message, each written in one piece, since two
// processes share the terminal.
#ifndef HBBTV_RYN_DEMO_NARRATION_H
#define HBBTV_RYN_DEMO_NARRATION_H

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>

namespace demo {

class Narrator {
 public:
  // `host` is who speaks, `colour` an ANSI colour number, used on a terminal only.
  Narrator(const char* host, int colour) : host_(host), colour_(isatty(STDOUT_FILENO) != 0 ? colour : 0) {}

  void say(const std::string& deed) const { print(deed, ""); }

  // Says what came of a deed, how long it took and whether the outcome was the right one.
  void check(const std::string& deed, const std::string& outcome, bool right, double microseconds) {
    if (!right) ++mistakes_;
    char took[32];
    std::snprintf(took, sizeof took, "%.0f us", microseconds);
    print(deed + "  ->  " + outcome + (right ? "" : "  WRONG"), took);
  }

  int mistakes() const { return mistakes_; }

 private:
  void print(const std::string& text, const char* took) const {
    // The reset comes first: a line of the library's own may have left a colour behind.
    const std::string before = colour_ == 0 ? "" : "\033[0;" + std::to_string(colour_) + "m";
    std::printf("%s%-8s%s %-86s %9s\n", before.c_str(), host_, colour_ == 0 ? "" : "\033[0m", text.c_str(),
                took);
    std::fflush(stdout);
  }

  const char* host_;
  int colour_;
  std::atomic<int> mistakes_{0};
};

class Stopwatch {
 public:
  double microseconds() const {
    return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start_).count();
  }

 private:
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

inline std::string name(int appid, int orgid) {
  return std::to_string(appid) + "/" + std::to_string(orgid);
}
inline std::string yesNo(bool answer) {
  return answer ? "yes" : "no";
}

}  // namespace demo

#endif  // HBBTV_RYN_DEMO_NARRATION_H
