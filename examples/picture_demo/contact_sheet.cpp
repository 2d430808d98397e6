#include "contact_sheet.h"

#include <algorithm>

#include "lettering.h"

namespace demo {

namespace {

constexpr int kColumns = 5;
constexpr int kFrameWidth = 272, kFrameHeight = 204;
constexpr int kMargin = 12;
constexpr int kCaption = 2 * kTextHeight + 4, kNote = kTextHeight;
constexpr uint8_t kPaper = 244;
constexpr Colour kInk = {32, 32, 32}, kPaleInk = {96, 96, 96};

uint8_t *pixel_of(Tensor &sheet, int x, int y) {
  return &sheet.bytes[3 * (static_cast<size_t>(y) * sheet.shape.height + static_cast<size_t>(x))];
}

/// The pixels of an extent that make up pixel `i` of another extent.
std::pair<int, int> share_of(int i, int of, int extent) {
  int const from = static_cast<int>(int64_t{i} * extent / of);
  return {from, std::max(from + 1, static_cast<int>(int64_t{i + 1} * extent / of))};
}

/// Scales a picture into the middle of a frame, every pixel the average of those that it stands for.
void draw_picture(Tensor &sheet, int left, int top, const Tensor &picture) {
  int const colours = picture.shape.width, width = picture.shape.height, height = picture.shape.channel;
  double const scale = std::min(kFrameWidth / double(width), kFrameHeight / double(height));
  int const new_width = std::max(1, static_cast<int>(width * scale));
  int const new_height = std::max(1, static_cast<int>(height * scale));
  for (int y = 0; y < new_height; ++y) {
    auto const [from_y, to_y] = share_of(y, new_height, height);
    for (int x = 0; x < new_width; ++x) {
      auto const [from_x, to_x] = share_of(x, new_width, width);
      uint8_t *pixel =
          pixel_of(sheet, left + (kFrameWidth - new_width) / 2 + x, top + (kFrameHeight - new_height) / 2 + y);
      for (int colour = 0; colour < 3; ++colour) {
        int64_t sum = 0;
        for (int64_t in_y = from_y; in_y < to_y; ++in_y) {
          for (int64_t in_x = from_x; in_x < to_x; ++in_x) {
            sum += picture.bytes[static_cast<size_t>((in_y * width + in_x) * colours + colour % colours)];
          }
        }
        pixel[colour] = static_cast<uint8_t>(sum / (int64_t{to_y - from_y} * (to_x - from_x)));
      }
    }
  }
}

}  // namespace

Tensor contact_sheet_of(const std::vector<Picture> &pictures) {
  constexpr int kStepX = kFrameWidth + kMargin, kStepY = kFrameHeight + kCaption + kNote + kMargin;
  int const rows = (static_cast<int>(pictures.size()) + kColumns - 1) / kColumns;
  Tensor sheet({3, kColumns * kStepX + kMargin, static_cast<uint16_t>(rows * kStepY + kMargin), 1}, kByte);
  std::fill(sheet.bytes.begin(), sheet.bytes.end(), kPaper);
  for (int i = 0; i < static_cast<int>(pictures.size()); ++i) {
    const Picture &picture = pictures[static_cast<size_t>(i)];
    int const left = kMargin + i % kColumns * kStepX, top = kMargin + i / kColumns * kStepY;
    draw_picture(sheet, left, top, picture.pixels);
    write_text(sheet, left, top + kFrameHeight + 4, left + kFrameWidth, 2, picture.caption, kInk);
    write_text(sheet, left, top + kFrameHeight + kCaption, left + kFrameWidth, 1, picture.note, kPaleInk);
  }
  return sheet;
}

}  // namespace demo
