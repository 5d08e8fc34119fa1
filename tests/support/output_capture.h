/// @file
/// What the process writes to standard output or standard error while the object lives.
#ifndef HBBTV_RYN_TESTS_SUPPORT_OUTPUT_CAPTURE_H
#define HBBTV_RYN_TESTS_SUPPORT_OUTPUT_CAPTURE_H

#include <cstdio>
#include <string>

namespace hbbtv_ryn::test {

class OutputCapture {
 public:
  /// @param stream  stdout or stderr.
  explicit OutputCapture(std::FILE* stream);
  /// Restores the stream.
  ~OutputCapture();
  OutputCapture(const OutputCapture&) = delete;
  OutputCapture& operator=(const OutputCapture&) = delete;

  /// Everything written so far.
  std::string text() const;

 private:
  std::FILE* m_stream;
  int m_original;
  int m_captured;
};

/// How often `part` stands in `text`.
int occurrences(const std::string& text, const std::string& part);

}  // namespace hbbtv_ryn::test

#endif  // HBBTV_RYN_TESTS_SUPPORT_OUTPUT_CAPTURE_H
