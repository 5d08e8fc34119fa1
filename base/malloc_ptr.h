/// @file
/// Owner of memory that comes from malloc() and goes back by free(), as texts do that cross the channel.
#ifndef HBBTV_RYN_BASE_MALLOC_PTR_H
#define HBBTV_RYN_BASE_MALLOC_PTR_H

#include <cstdlib>
#include <memory>

namespace hbbtv_ryn {

struct FreeDeleter {
  void operator()(void* memory) const { std::free(memory); }
};
/// Frees with free().
template <typename T>
using MallocPtr = std::unique_ptr<T, FreeDeleter>;

}  // namespace hbbtv_ryn

#endif  // HBBTV_RYN_BASE_MALLOC_PTR_H
