/// \file lettering.h
/// Text in pictures.
#ifndef TARVU_EXAMPLES_PICTURE_DEMO_LETTERING_H
#define TARVU_EXAMPLES_PICTURE_DEMO_LETTERING_H

#include <array>
#include <cstdint>
#include <string>

#include "demo.h"

namespace demo {

using Colour = std::array<uint8_t, 3>;

/// Pixels from `left` up to `right` and from `top` up to `bottom`, without the last ones.
struct Rectangle {
  int left, top, right, bottom;
};

/// Fills what lies inside the picture of a rectangle.
void fill(Tensor &picture, Rectangle rectangle, const Colour &colour);

/// Height of a line of text whose dots are squares of one pixel.
inline constexpr int kTextHeight = 11;

/// Width of a text whose dots are squares of one pixel.
int text_width(const std::string &text);

/// Writes a text from (left, top) on, its dots squares of `dot` pixels, as far as it lies left of `right`.
void write_text(Tensor &picture, int left, int top, int right, int dot, const std::string &text, const Colour &colour);

}  // namespace demo

#endif  // TARVU_EXAMPLES_PICTURE_DEMO_LETTERING_H
