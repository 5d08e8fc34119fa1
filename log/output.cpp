#include "log/output.h"

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>

#include "base/malloc_ptr.h"

namespace hbbtv_ryn {

namespace {

constexpr std::size_t kStackText = 2048 + 512;  // a longest message with its prefix, file and function

}  // namespace

void writeOut(const char* format, ...) {  // NOLINT(cert-dcl50-cpp): vprintf() formats it
  const int callers_errno = errno;
  char text[kStackText];
  va_list arguments;

  va_start(arguments, format);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the analyzer does not see va_start() here
  const int length = std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  const auto size = length < 0 ? 0 : static_cast<std::size_t>(length);

  if (size < sizeof text) {
    (void)std::fwrite(text, 1, size, stdout);
  } else {
    const MallocPtr<char> heap(static_cast<char*>(std::malloc(size + 1)));
    va_start(arguments, format);
    if (heap) {
      (void)std::vsnprintf(heap.get(), size + 1, format, arguments);
      (void)std::fwrite(heap.get(), 1, size, stdout);
    } else {
      (void)std::vprintf(format, arguments);
    }
    va_end(arguments);
  }
  errno = callers_errno;
}

}  // namespace hbbtv_ryn
