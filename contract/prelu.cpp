// PReLU: the operator, its kernels of one slope and those that look the slope up.
#include <algorithm>

#include "contract/formats.h"

namespace contract {
namespace {

#include "contract/prelu_ids.inc"

/// Elements of the smallest block of a kernel with one slope.
uint32_t block_of_bytes(uint32_t element_bytes) { return element_bytes == 1 ? 16 : 8; }

void add_run(RangeSink &sink, const char *field, uint64_t address, int32_t role, int32_t type, uint64_t first,
             uint64_t count) {
  const uint32_t bytes = type == TARVU_CONTRACT_S8 ? 1 : 2;
  Range range = range_of(field, address, role, type, bytes);
  range.offset = static_cast<int64_t>(first * bytes);
  extend(range, count, bytes);
  add(sink, range);
}

/// Of blocks and tail together; a shift of the design is the same in both.
void check_shift(FindingSink &sink, int32_t shift, uint32_t count, uint32_t element_bytes) {
  if (shift >= 0 && shift <= 31) return;
  const uint32_t tail = count % block_of_bytes(element_bytes);
  if (tail != 0) add(sink, kShiftByPlace, "shift", shift, {tail, count, 0});
}

/// Elements are rectified one by one, so the output may be the input itself.
bool same_place(const Range &other, const Range &written) {
  return other.role == TARVU_CONTRACT_READS && other.type == written.type && other.address == written.address &&
         other.offset == written.offset && std::strncmp(other.field, "in", 2) == 0;
}

bool prelu_may_overlap(const Call &call, const Range &other, const Range &written) {
  (void)call;
  return same_place(other, written);
}

// ---- The operator

/// 0 for widths that are not served.
uint32_t element_bytes_of(const _NN_PRELU_PARM &block) {
  const int32_t width = width_of(block.in_fmt);
  return width == 8 ? 1 : width == 16 ? 2 : 0;
}

Refusal prelu_refusal(const Call &call) {
  const auto block = block_of<_NN_PRELU_PARM>(call);
  const struct {
    const char *name;
    uint32_t extent;
  } extents[] = {{"num", block.num}, {"channels", block.channels}, {"height", block.height}, {"width", block.width}};
  for (const auto &extent : extents) {
    if (extent.extent != 0) continue;
    const Line line = {
        "tarvu_prelu_checkparm",
        "shape should be positive, but input is %dx%dx%dx%d(num x channels x height x width)\r\n\033[0m",
        static_cast<int32_t>(block.num),
        {static_cast<int32_t>(block.channels), static_cast<int32_t>(block.height), static_cast<int32_t>(block.width)}};
    return {&kEmptyShape, extent.name, 0, line, QX_ERR_PARAM};
  }
  return {};
}

void prelu_ranges(const Call &call, RangeSink &sink) {
  const auto block = block_of<_NN_PRELU_PARM>(call);
  const uint32_t bytes = element_bytes_of(block);
  if (bytes == 0) return;
  const int32_t type = bytes == 1 ? TARVU_CONTRACT_S8 : TARVU_CONTRACT_S16;
  const uint32_t plane = block.width * block.height;
  for (const bool is_written : {false, true}) {
    Range range = range_of(is_written ? "out_addr" : "in_addr", is_written ? block.out_addr : block.in_addr,
                           is_written ? TARVU_CONTRACT_WRITES : TARVU_CONTRACT_READS, type, bytes);
    extend(range, plane, bytes);
    extend(range, block.channels, int64_t{plane} * bytes, TARVU_CONTRACT_AXIS_CHANNEL);
    add(sink, range);
  }
  if (plane != 0)
    add_run(sink, "weight_addr", block.weight_addr, TARVU_CONTRACT_READS, TARVU_CONTRACT_S8, 0, block.channels);
}

void prelu_findings(const Call &call, FindingSink &sink) {
  const auto block = block_of<_NN_PRELU_PARM>(call);
  const uint32_t bytes = element_bytes_of(block);
  if (bytes == 0) return add(sink, kOtherWidth, "in_fmt", width_of(block.in_fmt));
  const uint32_t plane = block.width * block.height;
  check_wrap(sink, "width", plane, Wide{block.width} * block.height);
  if (block.num > 1) add(sink, kFirstItemAlone, "num", block.num);
  if (block.in_fmt.sign_bits == 0) add(sink, kReadAsSigned, "in_fmt", 0, {int64_t{bytes} * 8 - 1, 0, 0});
  check_shift(sink, block.shift, plane, bytes);
}

// ---- Kernels of one slope

int32_t element_type(const Call &call) { return call.info.arguments[0].target; }

void slope_ranges(const Call &call, RangeSink &sink) {
  const auto count = static_cast<uint32_t>(call.argument[3]);
  add_run(sink, "in", call.argument[0], TARVU_CONTRACT_READS, element_type(call), 0, count);
  add_run(sink, "out", call.argument[1], TARVU_CONTRACT_WRITES, element_type(call), 0, count);
}

void slope_findings(const Call &call, FindingSink &sink) {
  const auto count = static_cast<uint32_t>(call.argument[3]);
  check_extent(sink, "count", count);
  check_shift(sink, static_cast<int8_t>(call.argument[4]), count, element_type(call) == TARVU_CONTRACT_S8 ? 1 : 2);
}

// ---- Kernels that look the slope up

/// The slope of element i has the number ((i / divisor_a) % modulus) / divisor_b.
struct Lookup {
  uint32_t count;
  int32_t divisor_a;
  uint32_t modulus;
  uint32_t divisor_b;
};

Lookup lookup_of(const Call &call) {
  const auto count = static_cast<int32_t>(call.argument[5]);
  return {count < 1 ? 0 : static_cast<uint32_t>(count), static_cast<int32_t>(call.argument[6]),
          static_cast<uint32_t>(call.argument[3]), static_cast<uint32_t>(call.argument[7])};
}

/// Numbers of slopes from `first` to `last`, both read, and all between.
struct Slopes {
  uint32_t first;
  uint32_t last;
};

/// At most three stretches of slopes: quotients rise one by one, or fall from 2^32 - 1 on, and turn round at the modulus.
struct Stretches {
  Slopes at[3];
  uint32_t count;
};

void add_stretch(Stretches &stretches, const Lookup &lookup, uint32_t first, uint32_t last) {
  const uint32_t divisor = lookup.divisor_b;
  stretches.at[stretches.count++] = {divisor == 0 ? 0 : first / divisor, divisor == 0 ? 0 : last / divisor};
}

Stretches stretches_of(const Lookup &lookup) {
  Stretches stretches = {};
  if (lookup.count == 0) return stretches;
  const uint32_t modulus = lookup.modulus;
  const int64_t size = lookup.divisor_a < 0 ? -int64_t{lookup.divisor_a} : int64_t{lookup.divisor_a};
  const auto quotients = static_cast<uint32_t>(size == 0 ? 0 : (lookup.count - 1) / size);  // that are not 0
  if (modulus != 0 && quotients >= modulus) {
    add_stretch(stretches, lookup, 0, modulus - 1);
  } else if (lookup.divisor_a >= 0) {
    add_stretch(stretches, lookup, 0, quotients);
  } else {
    add_stretch(stretches, lookup, 0, 0);
    if (quotients == 0) return stretches;
    const uint32_t least = 0 - quotients;
    const uint32_t first = modulus == 0 ? least : least % modulus;
    const uint64_t last = uint64_t{first} + quotients - 1;
    if (modulus == 0 || last < modulus) {
      add_stretch(stretches, lookup, first, static_cast<uint32_t>(last));
    } else {
      add_stretch(stretches, lookup, first, modulus - 1);
      add_stretch(stretches, lookup, 0, static_cast<uint32_t>(last - modulus));
    }
  }
  return stretches;
}

void lookup_ranges(const Call &call, RangeSink &sink) {
  const Lookup lookup = lookup_of(call);
  const Stretches stretches = stretches_of(lookup);
  add_run(sink, "in", call.argument[0], TARVU_CONTRACT_READS, element_type(call), 0, lookup.count);
  add_run(sink, "out", call.argument[2], TARVU_CONTRACT_WRITES, element_type(call), 0, lookup.count);
  for (uint32_t i = 0; i < stretches.count; ++i) {
    const Slopes &slopes = stretches.at[i];
    add_run(sink, "weights", call.argument[1], TARVU_CONTRACT_READS, TARVU_CONTRACT_S8, slopes.first,
            uint64_t{slopes.last} - slopes.first + 1);
  }
}

void lookup_findings(const Call &call, FindingSink &sink) {
  const Lookup lookup = lookup_of(call);
  check_extent(sink, "count", lookup.count);
  if (lookup.count == 0) return;
  const auto shift = static_cast<int8_t>(call.argument[4]);
  if (shift < 0 || shift > 31) add(sink, kShiftModulo, "shift", shift, {shift & 31, 0, 0});
  if (lookup.divisor_a == 0) return add(sink, kNoDivisor, "divisor_a", 0);
  if (lookup.divisor_b == 0) return add(sink, kNoDivisor, "divisor_b", 0);
  const Stretches stretches = stretches_of(lookup);
  uint32_t last = 0;
  for (uint32_t i = 0; i < stretches.count; ++i) last = std::max(last, stretches.at[i].last);
  if (lookup.modulus == 0) add(sink, kNoModulus, "modulus", 0, {last, 0, 0});
  if (lookup.divisor_a < 0) add(sink, kNegativeDivisor, "divisor_a", lookup.divisor_a, {last, 0, 0});
}

}  // namespace

const Description kPReLU = {prelu_refusal, prelu_ranges, prelu_findings, nullptr, nullptr, prelu_may_overlap};
const Description kPReLUSlope = {nullptr, slope_ranges, slope_findings, nullptr, nullptr, prelu_may_overlap};
const Description kPReLULookup = {nullptr, lookup_ranges, lookup_findings, nullptr, nullptr, prelu_may_overlap};

}  // namespace contract
