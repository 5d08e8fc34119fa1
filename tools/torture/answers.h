/// @file
/// The only right answer to each question of a run, computed from the question.
#ifndef HBBTV_RYN_TOOLS_TORTURE_ANSWERS_H
#define HBBTV_RYN_TOOLS_TORTURE_ANSWERS_H

#include <climits>
#include <functional>
#include <string>

namespace hbbtv_ryn::test {

/// Serialised with its envelope, such a text makes a message of one record.
inline constexpr int kOneRecordText = 800;
inline constexpr int kManyRecordsText = 12000;

inline int numberFor(const std::string& question) {
  return static_cast<int>(std::hash<std::string>()(question) & INT_MAX);
}

inline std::string labelFor(int appid, int orgid) {
  const std::string question = std::to_string(appid) + '/' + std::to_string(orgid);
  const int number = numberFor(question);
  const int length = number % (number % 9 == 0 ? kManyRecordsText : kOneRecordText);
  return question + std::string(static_cast<std::size_t>(length), 'l');
}

}  // namespace hbbtv_ryn::test

#endif  // HBBTV_RYN_TOOLS_TORTURE_ANSWERS_H
