/// \file stdout_capture.h
/// Catches what a call prints, at descriptor level, as a caller's own redirection would.
#ifndef TARVU_TESTS_SUPPORT_STDOUT_CAPTURE_H
#define TARVU_TESTS_SUPPORT_STDOUT_CAPTURE_H

#include <string>

namespace support {

/// Everything written to standard output from construction to text(). Not nested.
class StdoutCapture {
 public:
  StdoutCapture();
  StdoutCapture(const StdoutCapture &) = delete;
  StdoutCapture &operator=(const StdoutCapture &) = delete;
  ~StdoutCapture();
  /// Ends the capture and returns what was written.
  std::string text();

 private:
  int saved_;
};

}  // namespace support

#endif  // TARVU_TESTS_SUPPORT_STDOUT_CAPTURE_H
