// Calls functions, and makes handlers, of whatever signature.
#ifndef HBBTV_RYN_TESTS_ENDPOINTS_ANY_FUNCTION_H
#define HBBTV_RYN_TESTS_ENDPOINTS_ANY_FUNCTION_H

#include <atomic>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "tools/support/deadline.h"

namespace hbbtv_ryn::test {

// --- Calling functions of the public interface

inline const std::string kText = "\"\\\n\u00e9";
// What is passed as a text, behind the position of the parameter.
inline std::string g_text = kText;
// What out-parameters hold before a call. A flag is tried with both values.
inline constexpr int kOld = 77;
inline bool g_old_flag = false;
// How many integers an out-parameter has room for.
inline std::size_t g_room = 20;

struct Argument {
  explicit Argument(int p) : position(p), text(std::to_string(p) + g_text) {}

  template <typename Parameter>
  Parameter pass() {
    if constexpr (std::is_pointer_v<Parameter> && std::is_convertible_v<int*, Parameter>) {
      return numbers.data();
    } else if constexpr (std::is_same_v<Parameter, bool*>) {
      return &flag;
    } else if constexpr (std::is_same_v<Parameter, const char*>) {
      return text.c_str();
    } else if constexpr (std::is_convertible_v<std::string&, Parameter>) {
      return text;
    } else if constexpr (std::is_same_v<Parameter, bool>) {
      return position % 2 != 0;
    } else {
      return static_cast<Parameter>(position);
    }
  }
  void showChanges(std::ostream& out) const {
    for (const int number : numbers) {
      if (number != kOld) out << ' ' << number;
    }
    if (flag != g_old_flag) out << ' ' << flag;
    if (text != std::to_string(position) + g_text) out << ' ' << text;
  }

  int position;
  std::vector<int> numbers = std::vector<int>(g_room, kOld);
  bool flag = g_old_flag;
  std::string text;
};

template <typename... Parameters>
std::string outcomeOf(int (*function)(Parameters...), int position) {
  std::vector<Argument> arguments;
  for (std::size_t i = 0; i < sizeof...(Parameters); ++i) arguments.emplace_back(position++);
  [[maybe_unused]] auto next = arguments.begin();
  const std::tuple<Parameters...> passed{(next++)->template pass<Parameters>()...};
  std::ostringstream out;
  out << std::apply(function, passed) << ':';
  for (const auto& argument : arguments) argument.showChanges(out);
  return out.str();
}

/// Passes its position for each parameter; for a flag, whether that is odd. Returns the result and what is
/// stored: "0: 1 -20".
template <auto Function, int FirstPosition = 1>
std::string call() {
  return outcomeOf(Function, FirstPosition);
}

// --- Handlers, which run on the library's threads

using Calls = std::vector<std::string>;

class CallLog {
 public:
  template <typename... Values>
  void note(int handler, Values... values) {
    std::ostringstream line;
    line << handler;
    ((line << ' ' << values), ...);
    const std::lock_guard<std::mutex> lock(mutex_);
    calls_.push_back(line.str());
  }
  /// The calls since the last take().
  Calls take() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return std::exchange(calls_, {});
  }
  /// The calls before this one, once it has been made.
  Calls takeUntil(const std::string& last) {
    Calls calls;
    waitUntil(("there was the call " + last).c_str(), [&] {
      for (auto& call : take()) calls.push_back(std::move(call));
      return !calls.empty() && calls.back() == last;
    });
    calls.pop_back();
    return calls;
  }

 private:
  std::mutex mutex_;
  Calls calls_;  // guarded by mutex_
};

inline CallLog g_calls;
inline std::atomic<bool> g_handlers_throw{false};

/// Out-parameters show what they hold on entry.
template <typename Parameter>
auto shown(const Parameter& parameter) {
  if constexpr (std::is_convertible_v<Parameter, std::string>) {
    return "'" + std::string(parameter) + "'";
  } else if constexpr (std::is_same_v<Parameter, void*>) {
    return parameter == nullptr ? "null" : "something";
  } else if constexpr (std::is_pointer_v<Parameter>) {
    return *parameter;
  } else {
    return parameter;
  }
}

template <typename Parameter>
void store(Parameter& parameter, int position) {
  if constexpr (std::is_same_v<Parameter, int*>) {
    *parameter += position;
  } else if constexpr (std::is_same_v<Parameter, bool*>) {
    *parameter = !*parameter;
  } else if constexpr (std::is_same_v<Parameter, std::string>) {
    parameter = kText;
  }
}

/// Fills a slot with a handler that notes its name and arguments, stores something and returns 7.
template <int Name, typename Result, typename... Parameters>
void noteCalls(Result (*&slot)(Parameters...)) {
  slot = [](Parameters... parameters) -> Result {
    g_calls.note(Name, shown(parameters)...);
    if (g_handlers_throw) Name % 2 == 0 ? throw std::runtime_error("from a host") : throw 42;
    [[maybe_unused]] int position = 0;
    (store(parameters, ++position), ...);
    return Result(7);
  };
}

}  // namespace hbbtv_ryn::test

#endif  // HBBTV_RYN_TESTS_ENDPOINTS_ANY_FUNCTION_H
