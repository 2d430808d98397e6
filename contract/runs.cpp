// Functions that take a run of elements: re-formatting, the flat conversions and the interleaving of bytes.
#include "contract/formats.h"

namespace contract {
namespace {

#include "contract/run_ids.inc"

uint32_t bytes_of_type(int32_t type) {
  switch (type) {
    case TARVU_CONTRACT_S8:
    case TARVU_CONTRACT_U8:
      return 1;
    case TARVU_CONTRACT_S16:
    case TARVU_CONTRACT_U16:
      return 2;
    default:
      return 4;
  }
}

void add_run(RangeSink &sink, const char *field, uint64_t address, int32_t role, int32_t type, uint32_t element_bytes,
             uint64_t count) {
  Range range = range_of(field, address, role, type, element_bytes);
  extend(range, count, element_bytes, TARVU_CONTRACT_AXIS_WIDTH);
  add(sink, range);
}

void add_record(RangeSink &sink, const char *field, uint64_t address, int32_t type, uint32_t bytes) {
  add_run(sink, field, address, TARVU_CONTRACT_PARAMETER, type, bytes, 1);
}

/// A run to be re-formatted.
struct Run {
  _NN_FMT in;
  _NN_FMT out;
  uint32_t count;
  bool in_place;
};

Run run_of(const Call &call) {
  return {record_at<_NN_FMT>(call, 3), record_at<_NN_FMT>(call, 4), static_cast<uint32_t>(call.argument[2]),
          call.argument[0] != 0 && call.argument[0] == call.argument[1]};
}

void reformat_ranges(const Call &call, RangeSink &sink) {
  const Run run = run_of(call);
  const Reformat bytes = reformat_of(run.in, run.out, run.in_place);
  add_run(sink, "source", call.argument[0], TARVU_CONTRACT_READS, integer_type_of(run.in, bytes.in_bytes),
          bytes.in_bytes, run.count);
  add_run(sink, "destination", call.argument[1], TARVU_CONTRACT_WRITES, integer_type_of(run.out, bytes.out_bytes),
          bytes.out_bytes, run.count);
  add_record(sink, "in_fmt", call.argument[3], TARVU_CONTRACT_FMT, sizeof(_NN_FMT));
  add_record(sink, "out_fmt", call.argument[4], TARVU_CONTRACT_FMT, sizeof(_NN_FMT));
}

void reformat_findings(const Call &call, FindingSink &sink) {
  const Run run = run_of(call);
  check_extent(sink, "count", run.count);
  const Reformat bytes = reformat_of(run.in, run.out, false);
  const int32_t in_width = narrow_width_of(run.in);
  const int32_t out_width = narrow_width_of(run.out);
  if (bytes.out_bytes == 0 && call.argument[3] != 0 && call.argument[4] != 0) {
    add(sink, kNothingConverted, "out_fmt", out_width, {in_width, out_width, 0});
  }
  if (run.in_place && bytes.out_bytes > bytes.in_bytes && run.count > 1) {
    add(sink, kWiderInPlace, "destination", static_cast<int64_t>(call.argument[1]), {in_width, out_width, 0});
  }
}

/// In place, where elements do not grow.
bool reformat_may_overlap(const Call &call, const Range &other, const Range &written) {
  (void)other;
  (void)written;
  return run_of(call).in_place;
}

void flat_ranges(const Call &call, RangeSink &sink) {
  const int32_t from = call.info.arguments[0].target;
  const int32_t to = call.info.arguments[1].target;
  const auto count = static_cast<uint32_t>(call.argument[3]);
  add_run(sink, "source", call.argument[0], TARVU_CONTRACT_READS, from, bytes_of_type(from), count);
  add_run(sink, "destination", call.argument[1], TARVU_CONTRACT_WRITES, to, bytes_of_type(to), count);
}

void flat_findings(const Call &call, FindingSink &sink) {
  const auto count = static_cast<uint32_t>(call.argument[3]);
  const auto frac_bits = static_cast<int16_t>(call.argument[2]);
  check_extent(sink, "count", count);
  if (count > INT32_MAX) add(sink, kCountTooLarge, "count", count);
  if (frac_bits >= 63 || frac_bits <= -63) add(sink, kPowerWraps, "frac_bits", frac_bits);
}

/// Bytes that come in whole groups of lanes.
uint32_t grouped_bytes(const Call &call) {
  const auto lanes = static_cast<uint32_t>(call.argument[2]);
  const auto total = static_cast<uint32_t>(call.argument[3]);
  return lanes == 0 ? 0 : total - total % lanes;
}

void interleave_ranges(const Call &call, RangeSink &sink) {
  const uint32_t bytes = grouped_bytes(call);
  add_run(sink, "source", call.argument[0], TARVU_CONTRACT_READS, TARVU_CONTRACT_U8, 1, bytes);
  add_run(sink, "destination", call.argument[1], TARVU_CONTRACT_WRITES, TARVU_CONTRACT_U8, 1, bytes);
}

void interleave_findings(const Call &call, FindingSink &sink) {
  const auto total = static_cast<uint32_t>(call.argument[3]);
  check_extent(sink, "lanes", static_cast<uint32_t>(call.argument[2]));
  check_extent(sink, "total_bytes", total);
  const uint32_t left = total - grouped_bytes(call);
  if (left != 0) add(sink, kBytesLeft, "total_bytes", total, {left, total, 0});
}

}  // namespace

const Description kReformat = {nullptr, reformat_ranges, reformat_findings, nullptr, nullptr, reformat_may_overlap};
const Description kFlatConversion = {nullptr, flat_ranges, flat_findings, nullptr, nullptr, nullptr};
const Description kInterleave = {nullptr, interleave_ranges, interleave_findings, nullptr, nullptr, nullptr};

}  // namespace contract
