// Calls of LSTM.
#include "tests/cases/cases.h"

namespace cases {

using namespace fuzz;

void draw_lstm(Source &source, Case &made) {
  _NN_LSTM_PARM block{};
  fill_bytes(source, &block, sizeof block);
  std::memset(&block, 0, offsetof(_NN_LSTM_PARM, width));
  block.width = one_in(source, 24) ? 0 : static_cast<uint16_t>(pick(source, 1, 9));
  block.height = static_cast<uint16_t>(pick(source, 1, 3));
  block.channel = static_cast<uint16_t>(one_of(source, {1, 2, 3, 1, 0}));
  block.batch = static_cast<uint16_t>(one_of(source, {1, 2, 4, 3, 0}));
  block.hidden_size = one_in(source, 24) ? 0 : some_size(source, 20);
  block.use_static = one_of(source, {0, 1, -1});
  block.in_fmt = some_format(source);
  block.out_fmt = some_format(source);
  std::vector<uint8_t> flags(size_t{block.batch} * block.channel);
  if (!one_in(source, 4)) fill_bytes(source, flags.data(), flags.size());
  made.contents.push_back({"cont_addr", flags});
  set_block(made, one_in(source, 3) ? "lstm_process_c" : "tarvu_lstm_process", block);
}

}  // namespace cases
