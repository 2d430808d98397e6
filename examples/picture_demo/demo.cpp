#include "demo.h"

#include <algorithm>
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

/// Type and fraction bits: "u8.0", "s16.-3".
std::string text_of(_NN_FMT format) {
  int const bits = format.frac_bits + format.int_bits + format.sign_bits;
  return (format.sign_bits != 0 ? "s" : "u") + std::to_string(bits) + "." + std::to_string(format.frac_bits);
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

void Demo::record(const std::string &name, _QX_RESULT result, double milliseconds, const Tensor &in,
                  const Tensor &out) {
  layers_.push_back({name, text_of(in.shape) + " -> " + text_of(out.shape),
                     text_of(in.format) + " -> " + text_of(out.format), result, milliseconds, digest_of(out.bytes)});
  if (result != QX_OK) throw std::runtime_error(name + ": the layer returned " + std::to_string(result));
}

void Demo::begin(const std::string &stage) {
  std::printf("%s ...\n", stage.c_str());
  std::fflush(stdout);
}

void Demo::show(const std::string &caption, const Tensor &interleaved) {
  std::string file_name = caption + ".png";
  std::replace(file_name.begin(), file_name.end(), ' ', '_');
  save_picture(path(file_name), interleaved);
  pictures_.push_back({caption, interleaved});
}

void Demo::print_findings() const {
  for (const std::string &line : findings_) std::printf("%s\n", line.c_str());
}

void Demo::print_table() const {
  size_t name = 5, shape = 5, formats = 7;
  for (const Layer &layer : layers_) {
    name = std::max(name, layer.name.size());
    shape = std::max(shape, layer.shape.size());
    formats = std::max(formats, layer.formats.size());
  }
  auto const column = [](size_t width) { return static_cast<int>(width); };
  std::printf("%-*s  %-*s  %-*s  result  time ms  digest\n", column(name), "layer", column(shape), "shape",
              column(formats), "formats");
  for (const Layer &layer : layers_) {
    std::printf("%-*s  %-*s  %-*s  %6d  %7.3f  %016" PRIx64 "\n", column(name), layer.name.c_str(), column(shape),
                layer.shape.c_str(), column(formats), layer.formats.c_str(), layer.result, layer.milliseconds,
                layer.digest);
  }
}

void Demo::write_digests() const {
  std::string const file_name = path("digests.txt");
  FILE *const file = std::fopen(file_name.c_str(), "w");
  bool written = file != nullptr;
  if (file != nullptr) {
    for (const Layer &layer : layers_) {
      written = std::fprintf(file, "%016" PRIx64 " %s\n", layer.digest, layer.name.c_str()) > 0 && written;
    }
    written = std::fclose(file) == 0 && written;
  }
  if (!written) throw std::runtime_error("cannot write " + file_name);
}

}  // namespace demo
