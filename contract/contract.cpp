// The questions that a caller asks, answered by the description of the function, and what is checked for every function.
#include <algorithm>

#include "contract/formats.h"
#include "contract/functions.h"
#include "contract/overlap.h"

namespace contract {
namespace {

#include "contract/any_ids.inc"

/// Ranges that are looked at together.
constexpr size_t kPage = 32;

bool takes_block(const Call &call) { return call.info.block != nullptr; }

bool is_written(const Range &range) {
  return range.role != TARVU_CONTRACT_READS && range.role != TARVU_CONTRACT_PARAMETER;
}

/// A call that is described and, where it takes a block, has one.
struct Question {
  Call call;
  const Description *description;  ///< null for none
  Refusal refusal;
};

Question question_of(const tarvu_contract_call *call, uint32_t options) {
  static constexpr tarvu_contract_function_info kNoFunction = {};
  const Function *function = function_of(call->function);
  if (function == nullptr) return {{call->argument, kNoFunction, options}, nullptr, {}};
  Question question = {{call->argument, function->info, options}, nullptr, {}};
  if (takes_block(question.call) && call->argument[0] == 0) return question;
  question.description = function->description;
  if (question.description->refusal != nullptr) question.refusal = question.description->refusal(question.call);
  return question;
}

size_t ranges_of(const Question &question, size_t first, Range *ranges, size_t room) {
  RangeSink sink = {ranges, first, room, 0};
  if (question.description == nullptr || question.description->ranges == nullptr) return 0;
  if (question.refusal.id == nullptr) {
    question.description->ranges(question.call, sink);
  } else if (question.description->ranges_before_refusal != nullptr) {
    question.description->ranges_before_refusal(question.call, sink);
  }
  return sink.count;
}

/// Numbers in findings have 64 bits.
int64_t saturated(Wide number) { return static_cast<int64_t>(std::clamp(number, Wide{INT64_MIN}, Wide{INT64_MAX})); }

void check_steps(FindingSink &sink, const Range &range) {
  Wide bytes;
  const tarvu_contract_extent *extent = folded_extent(range, bytes);
  if (extent == nullptr || extent->step_name == nullptr) return;
  add(sink, is_written(range) ? kWritesTwice : kReadsTwice, extent->step_name, extent->step, {saturated(bytes), 0, 0});
}

bool same_field(const Range &a, const Range &b) { return a.field == b.field || std::strcmp(a.field, b.field) == 0; }

/// Says each pair of fields once.
void check_overlap(FindingSink &sink, const Question &question, const Range *ranges, size_t count) {
  const Description &description = *question.description;
  for (size_t i = 0; i < count; ++i) {
    if (!is_written(ranges[i]) || ranges[i].address == 0) continue;
    Overlap found = Overlap::kNone;
    for (size_t k = 0; k < count && found != Overlap::kCertain; ++k) {
      const Range &other = ranges[k];
      if (same_field(other, ranges[i]) || other.address == 0 || (is_written(other) && k > i)) continue;
      const Overlap overlap = overlap_of(other, ranges[i]);
      if (overlap == Overlap::kNone) continue;
      if (description.may_overlap != nullptr && description.may_overlap(question.call, other, ranges[i])) continue;
      found = std::max(found, overlap);
    }
    if (found == Overlap::kNone) continue;
    const bool is_exact = found == Overlap::kCertain;
    add(sink, is_exact ? kOverlap : kMayOverlap, ranges[i].field, static_cast<int64_t>(ranges[i].address));
    while (i + 1 < count && same_field(ranges[i], ranges[i + 1])) ++i;
  }
}

/// Looks at whole tensors, not at the places that indices name: those may be as many as there are indices.
void check_ranges(FindingSink &sink, const Question &asked) {
  Question question = asked;
  question.call.options &= ~uint32_t{TARVU_CONTRACT_READ_CONTENTS};
  Range ranges[kPage];
  size_t count = kPage;
  for (size_t first = 0; first < count; first += kPage) {
    count = ranges_of(question, first, ranges, kPage);
    const size_t here = std::min(count - std::min(first, count), kPage);
    const char *null_field = nullptr;
    for (size_t i = 0; i < here; ++i) {
      check_steps(sink, ranges[i]);
      if ((question.call.options & TARVU_CONTRACT_WITHOUT_ADDRESSES) != 0) continue;
      if (ranges[i].address == 0 && null_field == ranges[i].field) continue;  // said already
      check_address(sink, ranges[i]);
      if (ranges[i].address == 0) null_field = ranges[i].field;
    }
    if ((question.call.options & TARVU_CONTRACT_WITHOUT_ADDRESSES) == 0) check_overlap(sink, question, ranges, here);
    if (count <= kPage) break;
  }
}

/// Arguments that point to formats, scales and the like.
void check_records(FindingSink &sink, const Question &question) {
  const tarvu_contract_function_info &info = question.call.info;
  if (takes_block(question.call)) return;
  for (uint32_t i = 0; i < info.argument_count; ++i) {
    if (info.arguments[i].target != TARVU_CONTRACT_FMT || question.call.argument[i] != 0) continue;
    add(sink, kNullRecord, info.arguments[i].name, 0);
  }
}

}  // namespace

void check_address(FindingSink &sink, const Range &range) {
  const Wide span = span_of(range);
  const Wide start = start_of(range);
  const auto value = static_cast<int64_t>(range.address);
  if (range.address == 0) return add(sink, kNullAddress, range.field, 0, {saturated(span), 0, 0});
  if (range.alignment > 1 && range.address % range.alignment != 0) {
    add(sink, kMisaligned, range.field, value, {range.alignment, 0, 0});
  }
  if (start < 0 || start + span > Wide{UINT64_MAX} + 1) add(sink, kEndOfMemory, range.field, value);
}

void check_reformat(FindingSink &sink, const _NN_FMT &in, const _NN_FMT &out) {
  if (std::memcmp(&in, &out, sizeof in) == 0) return;
  const int32_t in_width = narrow_width_of(in);
  const int32_t out_width = narrow_width_of(out);
  const bool served = (in_width == 8 || in_width == 16) && (out_width == 8 || out_width == 16);
  if (!served) return add(sink, kNotReformatted, "out_fmt", out_width, {in_width, out_width, 0});
  if (std::memcmp(&in, &out, offsetof(_NN_FMT, fmt_reserved)) == 0) {
    add(sink, kReservedByte, "out_fmt", out.fmt_reserved);
  }
}

void check_extent(FindingSink &sink, const char *field, uint64_t extent) {
  if (extent == 0) add(sink, kZeroExtent, field, 0);
}

void check_wrap(FindingSink &sink, const char *field, int64_t value, Wide true_size) {
  if (value != true_size) add(sink, kSizeWraps, field, value, {saturated(true_size), 0, 0});
}

}  // namespace contract

size_t tarvu_contract_ranges(const tarvu_contract_call *call, uint32_t options, size_t first,
                             tarvu_contract_range *ranges, size_t room) {
  return contract::ranges_of(contract::question_of(call, options), first, ranges, room);
}

uint64_t tarvu_contract_scratch_bytes(const tarvu_contract_call *call) {
  const contract::Function *function = contract::function_of(call->function);
  if (function == nullptr || function->description->scratch_bytes == nullptr) return 0;
  const contract::Question question = contract::question_of(call, 0);
  if (question.description == nullptr) return 0;
  if (question.refusal.id != nullptr && question.description->ranges_before_refusal == nullptr) return 0;
  return question.description->scratch_bytes(question.call);
}

uint64_t tarvu_contract_range_bytes(const tarvu_contract_range *range) {
  const contract::Wide span = contract::span_of(*range);
  return span > contract::Wide{UINT64_MAX} ? UINT64_MAX : static_cast<uint64_t>(span);
}

size_t tarvu_contract_findings(const tarvu_contract_call *call, uint32_t options, tarvu_contract_finding *findings,
                               size_t room) {
  contract::FindingSink sink = {findings, room, 0};
  const contract::Question question = contract::question_of(call, options);
  if (question.description == nullptr) {
    if (question.call.info.block != nullptr) contract::add(sink, contract::kNullRecord, "parm", 0);
    return sink.count;
  }
  if (question.refusal.id != nullptr) {
    contract::add(sink, question.refusal);
    return sink.count;
  }
  contract::check_records(sink, question);
  if (question.description->findings != nullptr) question.description->findings(question.call, sink);
  contract::check_ranges(sink, question);
  return sink.count;
}
