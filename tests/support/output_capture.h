/// @file
/// What the process writes to standard output or standard error while the object lives.
#ifndef HBBTV_RYN_TESTS_SUPPORT_OUTPUT_CAPTURE_H
#define HBBTV_RYN_TESTS_SUPPORT_OUTPUT_CAPTURE_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>
#include <system_error>

namespace hbbtv_ryn::test {

class OutputCapture {
 public:
  /// @param stream  stdout or stderr.
  explicit OutputCapture(std::FILE* stream) : stream_(stream) {
    std::fflush(stream_);
    original_ = fcntl(fileno(stream_), F_DUPFD_CLOEXEC, 0);
    captured_ = memfd_create("captured output", MFD_CLOEXEC);
    if (original_ < 0 || captured_ < 0 || dup2(captured_, fileno(stream_)) < 0) {
      throw std::system_error(errno, std::generic_category(), "cannot capture output");
    }
  }
  /// Restores the stream. What a test that has failed wrote appears on it, the failure included.
  ~OutputCapture() {
    const std::string captured = text();
    dup2(original_, fileno(stream_));
    close(original_);
    close(captured_);
    if (testing::Test::HasFailure()) std::fputs(captured.c_str(), stream_);
  }
  OutputCapture(const OutputCapture&) = delete;
  OutputCapture& operator=(const OutputCapture&) = delete;

  /// Everything written so far.
  std::string text() const {
    std::fflush(stream_);
    std::string text(static_cast<std::size_t>(lseek(captured_, 0, SEEK_END)), '\0');
    const ssize_t length = pread(captured_, text.data(), text.size(), 0);
    text.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
    return text;
  }

 private:
  std::FILE* stream_;
  int original_;
  int captured_;
};

/// How often `part` stands in `text`.
inline int occurrences(const std::string& text, const std::string& part) {
  int count = 0;
  for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) ++count;
  return count;
}

}  // namespace hbbtv_ryn::test

#endif  // HBBTV_RYN_TESTS_SUPPORT_OUTPUT_CAPTURE_H
