/// @file
/// Random numbers that one seed makes the same on every machine: a distribution of the standard library is
/// each library's own.
#ifndef HBBTV_RYN_TOOLS_TORTURE_RANDOM_H
#define HBBTV_RYN_TOOLS_TORTURE_RANDOM_H

#include <cstdint>
#include <random>

namespace hbbtv_ryn::test {

class Random {
 public:
  explicit Random(uint64_t seed) : engine_(seed) {}
  uint64_t number() { return engine_(); }
  /// @return 0 to limit - 1.
  template <typename Number>
  Number below(Number limit) {
    return static_cast<Number>(number() % static_cast<uint64_t>(limit));
  }
  bool oneIn(int limit) { return below(limit) == 0; }

 private:
  std::mt19937_64 engine_;
};

}  // namespace hbbtv_ryn::test

#endif  // HBBTV_RYN_TOOLS_TORTURE_RANDOM_H
