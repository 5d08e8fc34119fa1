// Owner of memory that crosses the channel: it comes from malloc() and goes back by free().
#ifndef HBBTV_RYN_BASE_MALLOC_PTR_H
#define HBBTV_RYN_BASE_MALLOC_PTR_H

#include <cstdlib>
#include <memory>

namespace hbbtv_ryn {

struct FreeDeleter {
  void operator()(void* memory) const { std::free(memory); }
};
template <typename T>
using MallocPtr = std::unique_ptr<T, FreeDeleter>;

}  // namespace hbbtv_ryn

#endif  // HBBTV_RYN_BASE_MALLOC_PTR_H
