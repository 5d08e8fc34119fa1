// What the tests of the endpoints know of the wire, from its description and not from the library.
#ifndef HBBTV_RYN_TESTS_ENDPOINTS_WIRE_H
#define HBBTV_RYN_TESTS_ENDPOINTS_WIRE_H

#include <gtest/gtest.h>
#include <json/reader.h>
#include <sys/types.h>

#include <memory>
#include <string>

namespace hbbtv_ryn::test {

inline constexpr auto kRequestKey = static_cast<key_t>(0x92101081);
inline constexpr auto kNotificationKey = static_cast<key_t>(0x92101091);
inline constexpr auto kQueryKey = static_cast<key_t>(0x92101093);

inline Json::Value parsed(const std::string& text) {
  Json::Value value;
  std::string errors;
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  EXPECT_TRUE(reader->parse(text.data(), text.data() + text.size(), &value, &errors)) << errors << text;
  return value;
}

/// The same members with the same values of the same types: 1 and true differ.
inline testing::AssertionResult sameJson(const std::string& expected, const std::string& actual) {
  if (parsed(expected) == parsed(actual)) return testing::AssertionSuccess();
  return testing::AssertionFailure() << "expected " << expected << "\ngot " << actual;
}

/// `depth` times what opens, then as often what closes.
inline std::string nested(int depth, const std::string& open, const std::string& close) {
  std::string text;
  for (int i = 0; i < depth; ++i) text += open;
  for (int i = 0; i < depth; ++i) text += close;
  return text;
}

/// Texts that are no JSON object.
inline const std::string kNoObjects[] = {
    " ",
    "no JSON",
    "{",
    R"({"t":216)",
    "[]",
    "[216]",
    "216",
    "null",
    "true",
    R"("t")",
    "{\"t\"",
    nested(2000, "[", "]"),
    nested(8000, "[", ""),
    nested(2000, R"({"t":)", "") + "0" + nested(2000, "", "}"),
};

}  // namespace hbbtv_ryn::test

#endif  // HBBTV_RYN_TESTS_ENDPOINTS_WIRE_H
