// Calls a function of the public interface with arguments of the tests' making, whatever its signature is.
#ifndef HBBTV_RYN_TESTS_ENDPOINTS_API_CALL_H
#define HBBTV_RYN_TESTS_ENDPOINTS_API_CALL_H

#include <sstream>
#include <string>
#include <tuple>

namespace hbbtv_ryn::test {

// What the out-parameters hold before a call. A flag is tried with both; a string holds "old".
inline constexpr int kOld = 77;
inline bool g_old_flag = false;
// What is passed as a text, behind the position of the parameter.
inline const std::string kText = "a\"b\\\n\u00e9";

/// Every other parameter is its position, counted from 1 by the constructors; a flag is true where that is
/// odd.
template <typename Value>
struct Argument {
  Value value;
  explicit Argument(int& position) : value(static_cast<Value>(++position)) {}
  Value pass() const { return value; }
  void show(std::ostream&) const {}
};
template <>
struct Argument<bool> : Argument<int> {
  using Argument<int>::Argument;
  bool pass() const { return value % 2 != 0; }
};
template <>
struct Argument<std::string> : Argument<int> {
  using Argument<int>::Argument;
  std::string pass() const { return std::to_string(value) + kText; }
};
template <>
struct Argument<const std::string&> : Argument<std::string> {
  using Argument<std::string>::Argument;
};
template <>
struct Argument<const char*> : Argument<int> {
  const std::string text;
  explicit Argument(int& position) : Argument<int>(position), text(std::to_string(value) + kText) {}
  const char* pass() const { return text.c_str(); }
};

template <typename Value>
struct OutArgument {
  Value value;
  Value* pass() { return &value; }
  void show(std::ostream& text) const { text << ' ' << value; }
};
template <>
struct Argument<int*> : OutArgument<int> {
  explicit Argument(int& position) : OutArgument{kOld} { ++position; }
};
template <>
struct Argument<bool*> : OutArgument<bool> {
  explicit Argument(int& position) : OutArgument{g_old_flag} { ++position; }
};
template <>
struct Argument<std::string&> : OutArgument<std::string> {
  explicit Argument(int& position) : OutArgument{"old"} { ++position; }
  std::string& pass() { return value; }
};

/// The result and what the out-parameters hold afterwards: "0: 1 77".
template <typename... Parameters>
std::string outcomeOf(int (*function)(Parameters...)) {
  [[maybe_unused]] int position = 0;
  std::tuple<Argument<Parameters>...> arguments{Argument<Parameters>(position)...};
  return std::apply(
      [&](auto&... argument) {
        std::ostringstream text;
        text << function(argument.pass()...) << ':';
        (argument.show(text), ...);
        return text.str();
      },
      arguments);
}

/// As a function to stand in a table.
template <auto Function>
std::string call() {
  return outcomeOf(Function);
}

}  // namespace hbbtv_ryn::test

#endif  // HBBTV_RYN_TESTS_ENDPOINTS_API_CALL_H
