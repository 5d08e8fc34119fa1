/// @file
/// What is written, by the process itself or by another one.
#ifndef HBBTV_RYN_TESTS_SUPPORT_OUTPUT_CAPTURE_H
#define HBBTV_RYN_TESTS_SUPPORT_OUTPUT_CAPTURE_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace hbbtv_ryn::test {

/// Something to write to, and to be read while that goes on.
class MemoryFile {
 public:
  MemoryFile() : descriptor_(memfd_create("output", MFD_CLOEXEC)) {
    if (descriptor_ < 0) std::abort();
  }
  ~MemoryFile() { close(descriptor_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;
  int descriptor() const { return descriptor_; }
  /// Everything written so far.
  std::string text() const {
    std::string text(static_cast<std::size_t>(lseek(descriptor_, 0, SEEK_END)), '\0');
    if (pread(descriptor_, text.data(), text.size(), 0) < 0) std::abort();
    return text;
  }

 private:
  int descriptor_;
};

/// What the process writes to standard output or standard error while the object lives.
class OutputCapture {
 public:
  /// @param stream  stdout or stderr.
  explicit OutputCapture(std::FILE* stream) : stream_(stream) {
    std::fflush(stream_);
    original_ = fcntl(fileno(stream_), F_DUPFD_CLOEXEC, 0);
    if (original_ < 0 || dup2(captured_.descriptor(), fileno(stream_)) < 0) std::abort();
  }
  /// Restores the stream. What a test that has failed wrote appears on it, the failure included.
  ~OutputCapture() {
    const std::string captured = text();
    dup2(original_, fileno(stream_));
    close(original_);
    if (testing::Test::HasFailure()) std::fputs(captured.c_str(), stream_);
  }
  OutputCapture(const OutputCapture&) = delete;
  OutputCapture& operator=(const OutputCapture&) = delete;

  std::string text() const {
    std::fflush(stream_);
    return captured_.text();
  }

 private:
  std::FILE* stream_;
  int original_;
  MemoryFile captured_;
};

/// How often `part` stands in `text`.
inline int occurrences(const std::string& text, const std::string& part) {
  int count = 0;
  for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) ++count;
  return count;
}

}  // namespace hbbtv_ryn::test

#endif  // HBBTV_RYN_TESTS_SUPPORT_OUTPUT_CAPTURE_H
