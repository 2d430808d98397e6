#include "lettering.h"

#include <stb_easy_font.h>

#include <algorithm>
#include <vector>

namespace demo {

namespace {

/// The rectangles that make up a text, from 0, 0 on.
std::vector<Rectangle> letters_of(std::string text) {
  struct Corner {
    float x, y, z;
    uint8_t colour[4];
  };
  std::vector<Corner> corners(text.size() * 100 + 1);
  int const count = stb_easy_font_print(0, 0, text.data(), nullptr, corners.data(),
                                        static_cast<int>(corners.size() * sizeof(Corner)));
  std::vector<Rectangle> rectangles;
  for (size_t i = 0; i < static_cast<size_t>(count); ++i) {
    Corner const first = corners[4 * i], third = corners[4 * i + 2];
    rectangles.push_back(
        {static_cast<int>(first.x), static_cast<int>(first.y), static_cast<int>(third.x), static_cast<int>(third.y)});
  }
  return rectangles;
}

}  // namespace

void fill(Tensor &picture, Rectangle rectangle, const Colour &colour) {
  int const width = picture.shape.height, height = picture.shape.channel;
  for (int y = std::max(0, rectangle.top); y < std::min(height, rectangle.bottom); ++y) {
    for (int x = std::max(0, rectangle.left); x < std::min(width, rectangle.right); ++x) {
      std::copy(colour.begin(), colour.end(),
                &picture.bytes[3 * (static_cast<size_t>(y) * picture.shape.height + static_cast<size_t>(x))]);
    }
  }
}

int text_width(const std::string &text) {
  std::string letters = text;
  return stb_easy_font_width(letters.data());
}

void write_text(Tensor &picture, int left, int top, int right, int dot, const std::string &text, const Colour &colour) {
  for (const Rectangle &part : letters_of(text)) {
    fill(picture,
         {left + dot * part.left, top + dot * part.top, std::min(right, left + dot * part.right),
          top + dot * part.bottom},
         colour);
  }
}

}  // namespace demo
