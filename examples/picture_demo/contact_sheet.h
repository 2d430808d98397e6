/// \file contact_sheet.h
/// One picture that shows all others, each with its caption and its note.
#ifndef TARVU_EXAMPLES_PICTURE_DEMO_CONTACT_SHEET_H
#define TARVU_EXAMPLES_PICTURE_DEMO_CONTACT_SHEET_H

#include <vector>

#include "demo.h"

namespace demo {

/// The pictures, scaled to equal frames, in rows of five.
Tensor contact_sheet_of(const std::vector<Picture> &pictures);

}  // namespace demo

#endif  // TARVU_EXAMPLES_PICTURE_DEMO_CONTACT_SHEET_H
