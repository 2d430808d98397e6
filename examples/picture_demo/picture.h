/// \file picture.h
/// Picture files in and out.
#ifndef TARVU_EXAMPLES_PICTURE_DEMO_PICTURE_H
#define TARVU_EXAMPLES_PICTURE_DEMO_PICTURE_H

#include <string>

#include "demo.h"

namespace demo {

/// Reads a PNG, JPEG or binary PPM file as interleaved bytes: width 3 (red, green, blue), height the columns, channel the lines
/// of the picture.
Tensor load_picture(const std::string &path);

/// Writes interleaved bytes as load_picture() gives them, or grey ones, of width 1.
void save_picture(const std::string &path, const Tensor &interleaved);

}  // namespace demo

#endif  // TARVU_EXAMPLES_PICTURE_DEMO_PICTURE_H
