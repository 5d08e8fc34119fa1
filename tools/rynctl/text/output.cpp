#include "tools/rynctl/text/output.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "tools/rynctl/failure.h"

namespace hbbtv_ryn::rynctl {

namespace {

bool hasColour(std::FILE* stream) {
  if (std::getenv("NO_COLOR") != nullptr || isatty(fileno(stream)) == 0) return false;
  const char* const terminal = std::getenv("TERM");
  return terminal != nullptr && std::string_view(terminal) != "dumb";
}

std::FILE* claimOutput() {
  std::FILE* const stream = fdopen(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0), "w");
  if (stream == nullptr) throw Failure(ExitCode::kRefused, "standard output cannot be written");
  std::setvbuf(stream, nullptr, _IOLBF, BUFSIZ);
  dup2(STDERR_FILENO, STDOUT_FILENO);
  return stream;
}

}  // namespace

std::FILE* output() {
  static std::FILE* const stream = claimOutput();
  return stream;
}

void complain(std::string_view text) {
  remark("{} {}", styled(Style::kProblem, "rynctl:", stderr), text);
}

void redraw(const std::string& text) {
  constexpr char kHomeAndClear[] = "\033[H\033[2J";
  print("{}{}", isatty(fileno(output())) != 0 ? kHomeAndClear : "", text);
}

std::string styled(Style style, std::string_view text, std::FILE* stream) {
  constexpr int kCodes[] = {0, 1, 32, 31};
  if (!hasColour(stream)) return std::string(text);
  return compose("\033[{}m{}\033[0m", kCodes[static_cast<int>(style)], text);
}

std::string printable(std::string_view text) {
  constexpr unsigned char kDelete = 0x7f;
  std::string result;
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    const bool steers = byte < ' ' || byte == kDelete;
    result += steers ? compose("\\x{:02x}", byte) : std::string(1, character);
  }
  return result;
}

std::string joined(const std::vector<std::string>& texts, std::string_view separator) {
  std::string result;
  for (const std::string& text : texts) result += (result.empty() ? "" : std::string(separator)) + text;
  return result;
}

std::string counted(unsigned long number, std::string_view thing) {
  const char* const plural = number == 1 ? "" : thing.back() == 's' ? "es" : "s";
  return compose("{} {}{}", number, thing, plural);
}

std::string keyText(key_t key) {
  return compose("{:#010x}", static_cast<unsigned>(key));
}

std::string ageText(std::time_t when) {
  constexpr std::time_t kMinute = 60;
  constexpr std::time_t kHour = 60 * kMinute;
  constexpr std::time_t kDay = 24 * kHour;
  if (when == 0) return "never";
  const std::time_t age = std::max<std::time_t>(std::time(nullptr) - when, 0);
  if (age < 2 * kMinute) return compose("{} s ago", age);
  if (age < 2 * kHour) return compose("{} min ago", age / kMinute);
  if (age < 2 * kDay) return compose("{} h ago", age / kHour);
  return compose("{} d ago", age / kDay);
}

std::string clockText(std::int64_t microseconds) {
  constexpr std::int64_t kPerSecond = 1000000;
  const auto seconds = static_cast<std::time_t>(microseconds / kPerSecond);
  std::tm local{};
  localtime_r(&seconds, &local);
  return compose("{:02}:{:02}:{:02}.{:06}", local.tm_hour, local.tm_min, local.tm_sec,
                 microseconds % kPerSecond);
}

}  // namespace hbbtv_ryn::rynctl
