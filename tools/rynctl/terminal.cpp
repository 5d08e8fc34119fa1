#include "terminal.h"

#include <cstdlib>

namespace hbbtv_ryn::rynctl {

namespace {

const char* escapeOf(Style style) {
  switch (style) {
    case Style::Heading:
      return "\033[1m";
    case Style::Good:
      return "\033[32m";
    case Style::Problem:
      return "\033[31m";
  }
  return "";
}

}  // namespace

bool hasColour(int descriptor) {
  if (std::getenv("NO_COLOR") != nullptr || isatty(descriptor) == 0) return false;
  const char* const terminal = std::getenv("TERM");
  return terminal != nullptr && std::string_view(terminal) != "dumb";
}

std::string styled(Style style, std::string_view text, bool colour) {
  if (!colour) return std::string(text);
  return escapeOf(style) + std::string(text) + "\033[0m";
}

std::string printable(std::string_view text) {
  constexpr char kHex[] = "0123456789abcdef";
  constexpr unsigned char kFirstPrintable = ' ';
  constexpr unsigned char kDelete = 0x7f;
  std::string result;
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte < kFirstPrintable || byte == kDelete) {
      result += "\\x";
      result += kHex[byte / 16];
      result += kHex[byte % 16];
    } else {
      result += character;
    }
  }
  return result;
}

std::string joined(const std::vector<std::string>& texts, std::string_view separator) {
  std::string result;
  for (const std::string& text : texts) {
    if (!result.empty()) result += separator;
    result += text;
  }
  return result;
}

}  // namespace hbbtv_ryn::rynctl
