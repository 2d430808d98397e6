#include "demo.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <stdexcept>

#include "picture.h"

namespace demo {

namespace {

std::string text_of(Shape shape) {
  return std::to_string(shape.batch) + "x" + std::to_string(shape.channel) + "x" + std::to_string(shape.height) + "x" +
         std::to_string(shape.width);
}

/// Type and fraction bits: "u8.0", "s16.-3". Floats, "f32", are all that the example has of 32 bits.
std::string text_of(_NN_FMT format) {
  int const bits = format.frac_bits + format.int_bits + format.sign_bits;
  if (bits == 32) return "f32";
  return (format.sign_bits != 0 ? "s" : "u") + std::to_string(bits) + "." + std::to_string(format.frac_bits);
}

/// Calls `call` and returns what it printed on standard output, without the end of its last line.
std::string printed_by(const std::function<void()> &call) {
  std::fflush(stdout);
  int const kept = dup(STDOUT_FILENO), memory = memfd_create("printed", 0);
  if (kept < 0 || memory < 0 || dup2(memory, STDOUT_FILENO) < 0) {
    throw std::runtime_error("standard output cannot be turned aside");
  }
  call();
  std::fflush(stdout);
  dup2(kept, STDOUT_FILENO);
  close(kept);

  std::string text(static_cast<size_t>(lseek(memory, 0, SEEK_END)), ' ');
  ssize_t const count = pread(memory, text.data(), text.size(), 0);
  close(memory);
  text.resize(static_cast<size_t>(std::max<ssize_t>(count, 0)));
  text.erase(text.find_last_not_of("\r\n") + 1);
  return text;
}

}  // namespace

Tensor::Tensor(Shape the_shape, _NN_FMT the_format) : shape(the_shape), format(the_format) {
  bytes.resize(size_t{batch_bytes()} * shape.batch);
}

uint32_t Tensor::element_bytes() const {
  return static_cast<uint32_t>(format.frac_bits + format.int_bits + format.sign_bits) / 8;
}

_NN_FMT unsigned_format(int frac_bits, int width_bits) {
  return {static_cast<int8_t>(frac_bits), static_cast<int8_t>(width_bits - frac_bits), 0, 0};
}

uint64_t digest_of(const std::vector<uint8_t> &bytes) {
  uint64_t digest = 0xCBF29CE484222325u;
  for (uint8_t const byte : bytes) digest = (digest ^ byte) * 0x100000001B3u;
  return digest;
}

void Demo::time_and_record(const std::string &name, const std::function<_QX_RESULT()> &call, const Tensor &in,
                           const Tensor &out) {
  _QX_RESULT result = QX_OK;
  std::chrono::duration<double, std::milli> time{};
  std::string const printed = printed_by([&] {
    auto const start = std::chrono::steady_clock::now();
    result = call();
    time = std::chrono::steady_clock::now() - start;
  });
  if (result != QX_OK) {
    throw std::runtime_error(name + ": the layer returned " + std::to_string(result) + " and printed: " + printed);
  }
  run_.layers.push_back({name, text_of(in.shape) + " -> " + text_of(out.shape),
                         text_of(in.format) + " -> " + text_of(out.format), time.count(), digest_of(out.bytes)});
  if (!printed.empty()) report("printed by \"" + name + "\": " + printed);
}

void Demo::begin(const std::string &stage) {
  std::printf("%s ...\n", stage.c_str());
  std::fflush(stdout);
}

void Demo::show(const std::string &caption, const Tensor &interleaved, const std::string &note) {
  std::string file_name = caption + ".png";
  std::replace(file_name.begin(), file_name.end(), ' ', '_');
  save_picture(path(file_name), interleaved);
  pictures_.push_back({caption, note, interleaved});
}

void Demo::print_findings() const {
  for (const std::string &line : findings_) std::printf("%s\n", line.c_str());
}

void Demo::write_digests() const {
  std::string const file_name = path("digests.txt");
  FILE *const file = std::fopen(file_name.c_str(), "w");
  bool written = file != nullptr;
  if (file != nullptr) {
    for (const Layer &layer : run_.layers) {
      written = std::fprintf(file, "%016" PRIx64 " %s\n", layer.digest, layer.name.c_str()) > 0 && written;
    }
    written = std::fclose(file) == 0 && written;
  }
  if (!written) throw std::runtime_error("cannot write " + file_name);
}

}  // namespace demo
