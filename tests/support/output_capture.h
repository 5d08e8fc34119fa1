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
  explicit OutputCapture(std::FILE* stream) : m_stream(stream) {
    std::fflush(m_stream);
    m_original = fcntl(fileno(m_stream), F_DUPFD_CLOEXEC, 0);
    m_captured = memfd_create("captured output", MFD_CLOEXEC);
    if (m_original < 0 || m_captured < 0 || dup2(m_captured, fileno(m_stream)) < 0) {
      throw std::system_error(errno, std::generic_category(), "cannot capture output");
    }
  }
  /// Restores the stream. What a test that has failed wrote appears on it, the failure included.
  ~OutputCapture() {
    const std::string captured = text();
    dup2(m_original, fileno(m_stream));
    close(m_original);
    close(m_captured);
    if (testing::Test::HasFailure()) std::fputs(captured.c_str(), m_stream);
  }
  OutputCapture(const OutputCapture&) = delete;
  OutputCapture& operator=(const OutputCapture&) = delete;

  /// Everything written so far.
  std::string text() const {
    std::fflush(m_stream);
    std::string text(static_cast<std::size_t>(lseek(m_captured, 0, SEEK_END)), '\0');
    const ssize_t length = pread(m_captured, text.data(), text.size(), 0);
    text.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
    return text;
  }

 private:
  std::FILE* m_stream;
  int m_original;
  int m_captured;
};

/// How often `part` stands in `text`.
inline int occurrences(const std::string& text, const std::string& part) {
  int count = 0;
  for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) ++count;
  return count;
}

}  // namespace hbbtv_ryn::test

#endif  // HBBTV_RYN_TESTS_SUPPORT_OUTPUT_CAPTURE_H
