/// @file
/// Functions of the interface against the rows of the catalogue. A sender names its code and its values, a
/// route its code and its handler; the compiler checks that their number, order and types are the row's:
///
/// | The row's member   | Sent             | Stored       | A handler takes          | and answers  |
/// |--------------------|------------------|--------------|--------------------------|--------------|
/// | kInt               | int, enumeration | int*         | int                      | int*         |
/// | kFlag, kBoolean    | bool             | bool*        | bool                     | bool*        |
/// | kString, kIdFields | any text         | std::string* | const char*, std::string | std::string& |
/// | kKeyCount          | KeyList          | KeyCodes*    | const KeyCodes&          | KeyCodes&    |
/// | kInt under "ret"   |                  | the result   |                          | the result   |
///
/// A handler's parameters stand in the order of the row, but what it takes and what it answers may mix. Its
/// `void*` is no member: it gets the user data. What is no template is exchange.h's.
#ifndef HBBTV_RYN_IPC_ENDPOINT_SIGNATURE_H
#define HBBTV_RYN_IPC_ENDPOINT_SIGNATURE_H

#include <array>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

#include "ipc/endpoint/exchange.h"
#include "ipc/protocol/catalogue.h"

namespace hbbtv_ryn {
namespace signature_detail {

/// Whether a value, or a pointer to where one is stored, is of the type that travels so.
template <typename T>
constexpr bool travelsAs(Type type) {
  using Value = std::remove_pointer_t<T>;
  if (std::is_same_v<Value, bool>) return isFlag(type);
  if (std::is_same_v<Value, int> || std::is_enum_v<Value>) return type == Type::kInt;
  if (std::is_same_v<Value, KeyList> || std::is_same_v<Value, KeyCodes>) return type == Type::kKeyCount;
  const bool is_text = std::is_same_v<Value, std::string> || std::is_convertible_v<T, std::string_view>;
  return is_text && isText(type);
}

/// Members of a row, one after the other, without "ret".
struct Walk {
  const Members& members;
  bool delivered_only = false;
  const Member* at = members.begin();

  constexpr bool more() {
    while (at != members.end() && (at->is_result || (delivered_only && !at->delivered))) ++at;
    return at != members.end();
  }
  /// Whether the next one is of this type.
  template <typename T>
  constexpr bool take() {
    return more() && travelsAs<std::decay_t<T>>((at++)->type);
  }
};

/// Whether the members are of these types, one for one.
template <typename... Types>
constexpr bool areOf(const Members& members) {
  Walk walk{members};
  return (walk.take<Types>() && ...) && !walk.more();
}

/// What a handler's parameter is for, of those that are no user data.
template <typename P>
inline constexpr bool kIsAnswer = std::is_same_v<P, int*> || std::is_same_v<P, bool*> ||
                                  std::is_same_v<P, std::string&> || std::is_same_v<P, KeyCodes&>;
template <typename P>
inline constexpr bool kIsTaken = !kIsAnswer<P> && !std::is_same_v<P, void*>;

template <typename Signature>
struct Handler;

template <typename Result, typename... Parameters>
struct Handler<Result (*)(Parameters...)> {
  static constexpr bool fits(const Message& row) {
    Walk taken{row.request, true};
    Walk answered{row.reply};
    return ((!kIsTaken<Parameters> || taken.take<Parameters>()) && ...) && !taken.more() &&
           ((!kIsAnswer<Parameters> || answered.take<Parameters>()) && ...) && !answered.more() &&
           row.reply.hasResult() == std::is_same_v<Result, int>;
  }

  static void call(AnyFunction handler, Call with) {
    std::tuple<Parameters...> arguments{next<Parameters>(&with)...};
    const auto typed = reinterpret_cast<Result (*)(Parameters...)>(handler);
    if constexpr (std::is_void_v<Result>) {
      std::apply(typed, std::move(arguments));
    } else {
      with.out->number = std::apply(typed, std::move(arguments));
    }
  }

 private:
  template <typename P>
  static P next(Call* with) {
    if constexpr (std::is_same_v<P, void*>) {
      return with->user_data;
    } else {
      Value& value = *(kIsAnswer<P> ? with->out : with->in)++;
      if constexpr (std::is_same_v<P, int*>) {
        return &value.number;
      } else if constexpr (std::is_same_v<P, bool*>) {
        return &value.flag;
      } else if constexpr (std::is_same_v<P, const char*>) {
        return value.text->c_str();
      } else if constexpr (std::is_arithmetic_v<P>) {
        return static_cast<P>(value.number);
      } else if constexpr (std::is_same_v<std::decay_t<P>, KeyCodes>) {
        return value.keys;
      } else {
        return *value.text;
      }
    }
  }
};

template <typename Record, typename Function>
struct Handler<Function Record::*> : Handler<Function> {};

}  // namespace signature_detail

/// The values of one message, by reference: to be made where it is sent.
template <typename... Types>
struct With {
  explicit With(const Types&... given) : values{Given(given)...} {}
  const std::array<Given, sizeof...(Types)> values;
};

/// Where an endpoint sends the messages of one queue.
template <key_t Queue>
struct Outlet : Line {
  /// Sends a message and, when the row has an answer, waits for it and stores it. The result is that of
  /// exchange().
  template <Code C, typename... Types, typename... Stored>
  int send(const With<Types...>& sent, Stored*... stored) const {
    static_assert(queueOf(messageOf(C)) == Queue, "the row's message travels on another queue");
    static_assert(signature_detail::areOf<Types...>(messageOf(C).request),
                  "the values are not, in number, order and types, what the row's request holds");
    static_assert(signature_detail::areOf<Stored...>(messageOf(C).reply),
                  "what is stored is not, in number, order and types, what the row's reply holds");
    const std::array<void*, sizeof...(Stored)> places{stored...};
    return exchange(*this, messageOf(C), sent.values.data(), places.data());
  }
};

/// The route of a code to the handlers of a signature, of which `Find` yields the present one.
template <Code C, typename Signature, AnyFunction (*Find)()>
constexpr Route route() {
  using Handler = signature_detail::Handler<Signature>;
  static_assert(Handler::fits(messageOf(C)),
                "the handler's parameters or result are not what the row holds");
  return {&messageOf(C), Find, &Handler::call};
}

template <auto Function>
AnyFunction ours() {
  return reinterpret_cast<AnyFunction>(Function);
}

/// The route of a code to a function of ours, for what has no handler of its own shape.
template <Code C, auto Function>
constexpr Route route() {
  return route<C, decltype(Function), &ours<Function>>();
}

/// Whether these are the routes of exactly the rows that travel on the queue.
template <key_t Queue, std::size_t Count>
constexpr bool serveExactly(const Route (&routes)[Count]) {
  std::size_t served = 0;
  for (const Message& row : kMessages) {
    if (queueOf(row) != Queue) continue;
    if (served == Count || routes[served++].row != &row) return false;
  }
  return served == Count;
}

}  // namespace hbbtv_ryn

#endif  // HBBTV_RYN_IPC_ENDPOINT_SIGNATURE_H
