#include "tests/support/stdout_capture.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace support {
namespace {

int capture_file() {
  static const int file = memfd_create("stdout_capture", 0);
  return file;
}

}  // namespace

StdoutCapture::StdoutCapture() {
  std::fflush(stdout);
  saved_ = dup(STDOUT_FILENO);
  if (saved_ < 0 || ftruncate(capture_file(), 0) != 0 || lseek(capture_file(), 0, SEEK_SET) != 0 ||
      dup2(capture_file(), STDOUT_FILENO) < 0) {
    std::perror("stdout capture");
    std::abort();
  }
}

StdoutCapture::~StdoutCapture() {
  if (saved_ >= 0) text();
}

std::string StdoutCapture::text() {
  std::fflush(stdout);
  dup2(saved_, STDOUT_FILENO);
  close(saved_);
  saved_ = -1;
  std::string all;
  char piece[4096];
  off_t at = 0;
  for (ssize_t got; (got = pread(capture_file(), piece, sizeof piece, at)) > 0; at += got) {
    all.append(piece, static_cast<size_t>(got));
  }
  return all;
}

}  // namespace support
