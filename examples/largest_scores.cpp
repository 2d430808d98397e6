// The three largest of a list of scores, with their places: a Top-K layer, called from C++.
#include <array>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "tarvu.h"

namespace {

/// The address of an array as a parameter block holds it.
template <class Array>
uint64_t address_of(const Array &array) {
  return reinterpret_cast<uintptr_t>(array.data());
}

}  // namespace

int main() {
  constexpr uint16_t kLargest = 3;
  const std::vector<int8_t> scores = {12, -7, 93, 40, 0, 58, -128, 57};
  std::array<int8_t, kLargest> values{};
  std::array<uint16_t, kLargest> places{};
  std::vector<uint32_t> scratch(scores.size());  // one word an element

  _NN_TOPK_PARM layer = {};
  layer.in_addr = address_of(scores);
  layer.out_addr = address_of(values);
  layer.out_index_addr = address_of(places);
  layer.work_buffer = address_of(scratch);
  layer.width = static_cast<uint16_t>(scores.size());
  layer.height = layer.channel = layer.batch = 1;
  layer.out_line_ofs = layer.out_channel_ofs = layer.out_batch_ofs = sizeof values;
  layer.out_index_line_ofs = layer.out_index_channel_ofs = layer.out_index_batch_ofs = sizeof places;
  layer.in_fmt = {4, 3, 1, 0};  // 4 fraction bits, 3 integer bits, a sign
  layer.axis = 3;               // width
  layer.k = kLargest;
  layer.largest = layer.sorted = 1;

  if (tarvu_topk_process(&layer) != QX_OK) return 1;
  for (uint16_t i = 0; i < kLargest; ++i) {
    std::printf("element %u: %.4f\n", unsigned{places[i]}, values[i] / 16.0);
  }
  return 0;
}
