#include "picture.h"

#include <algorithm>
#include <memory>
#include <stdexcept>

#define STB_IMAGE_IMPLEMENTATION
#define STBI_ONLY_JPEG
#define STBI_ONLY_PNG
#define STBI_ONLY_PNM
#define STBI_MAX_DIMENSIONS 16384
#include <stb_image.h>
#define STB_IMAGE_WRITE_IMPLEMENTATION
#include <stb_image_write.h>

namespace demo {

Tensor load_picture(const std::string &path) {
  constexpr int kColours = 3;
  int width = 0, height = 0, colours_in_file = 0;
  std::unique_ptr<stbi_uc, decltype(&stbi_image_free)> const pixels(
      stbi_load(path.c_str(), &width, &height, &colours_in_file, kColours), stbi_image_free);
  if (pixels == nullptr) throw std::runtime_error("cannot read " + path + ": " + stbi_failure_reason());

  Tensor picture({kColours, static_cast<uint16_t>(width), static_cast<uint16_t>(height), 1}, unsigned_format(0, 8));
  std::copy_n(pixels.get(), picture.bytes.size(), picture.bytes.begin());
  return picture;
}

void save_picture(const std::string &path, const Tensor &interleaved) {
  Shape const shape = interleaved.shape;
  int const width = shape.height, height = shape.channel, colours = shape.width;
  if (stbi_write_png(path.c_str(), width, height, colours, interleaved.bytes.data(), width * colours) == 0) {
    throw std::runtime_error("cannot write " + path);
  }
}

}  // namespace demo
