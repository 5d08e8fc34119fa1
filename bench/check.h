/// @file
/// Turns the results of system calls into exceptions.
#ifndef BENCH_CHECK_H
#define BENCH_CHECK_H

#include <cerrno>
#include <system_error>

namespace bench {

/// @throws std::system_error with errno for a negative result.
template <typename Result>
Result check(Result result, const char* what) {
  if (result < 0) throw std::system_error(errno, std::generic_category(), what);
  return result;
}

/// For functions that return a negative errno.
inline int checkErrno(int result, const char* what) {
  if (result < 0) throw std::system_error(-result, std::generic_category(), what);
  return result;
}

}  // namespace bench

#endif  // BENCH_CHECK_H
