// A call in words.
#include "contract/formats.h"
#include "contract/functions.h"

namespace contract {
namespace {

template <class T>
T field_at(const uint8_t *block, uint32_t offset) {
  T value;
  std::memcpy(&value, block + offset, sizeof value);
  return value;
}

void put_format(Text &text, const _NN_FMT &fmt) {
  put(text, fmt.sign_bits != 0 ? "s" : "u");
  put(text, int64_t{fmt.int_bits});
  put(text, ".");
  put(text, int64_t{fmt.frac_bits});
  if (fmt.sign_bits != 0 && fmt.sign_bits != 1) {
    put(text, " with sign_bits ");
    put(text, int64_t{fmt.sign_bits});
  }
  put(text, ", ");
  put(text, int64_t{width_of(fmt)});
  put(text, " bits");
}

void put_scale(Text &text, const _NN_SCALE &scale) {
  put(text, int64_t{scale.scale_value});
  if (scale.scale_shift == 0) return;
  put(text, scale.scale_shift > 0 ? "/2^" : "*2^");
  put(text, scale.scale_shift > 0 ? int64_t{scale.scale_shift} : -int64_t{scale.scale_shift});
}

/// Floats to six digits behind the point, or as their bits where that says nothing.
void put_short_float(Text &text, float value) {
  const bool is_small = value > -2e9f && value < 2e9f;
  if (!is_small) {
    uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return put_hexadecimal(text, bits);
  }
  const auto millionths = static_cast<int64_t>(static_cast<double>(value) * 1e6);
  const uint64_t size = millionths < 0 ? 0 - static_cast<uint64_t>(millionths) : static_cast<uint64_t>(millionths);
  if (millionths < 0) put(text, "-");
  put_unsigned(text, size / 1000000);
  put(text, ".");
  for (uint64_t unit = 100000; unit != 0; unit /= 10) put_unsigned(text, size / unit % 10);
}

void put_element(Text &text, int32_t type, const uint8_t *at) {
  switch (type) {
    case TARVU_CONTRACT_S8:
      return put(text, int64_t{field_at<int8_t>(at, 0)});
    case TARVU_CONTRACT_U8:
      return put(text, int64_t{field_at<uint8_t>(at, 0)});
    case TARVU_CONTRACT_S16:
      return put(text, int64_t{field_at<int16_t>(at, 0)});
    case TARVU_CONTRACT_U16:
      return put(text, int64_t{field_at<uint16_t>(at, 0)});
    case TARVU_CONTRACT_S32:
      return put(text, int64_t{field_at<int32_t>(at, 0)});
    case TARVU_CONTRACT_U32:
      return put(text, int64_t{field_at<uint32_t>(at, 0)});
    case TARVU_CONTRACT_F32:
      return put_short_float(text, field_at<float>(at, 0));
    case TARVU_CONTRACT_ADDRESS:
      return put_hexadecimal(text, field_at<uint64_t>(at, 0));
    case TARVU_CONTRACT_FMT:
      return put_format(text, field_at<_NN_FMT>(at, 0));
    case TARVU_CONTRACT_SCALE:
      return put_scale(text, field_at<_NN_SCALE>(at, 0));
    default:
      return put(text, "...");
  }
}

void put_block(Text &text, const tarvu_contract_function_info &info, const uint8_t *block) {
  for (uint32_t i = 0; i < info.field_count; ++i) {
    const tarvu_contract_field &field = info.fields[i];
    if (std::strncmp(field.name, "reserved_", 9) == 0) continue;
    put(text, "  ");
    put(text, field.name);
    for (uint32_t k = 0; k < field.count; ++k) {
      put(text, " ");
      put_element(text, field.type, block + field.offset + k * (field.bytes / field.count));
    }
    put(text, "\n");
  }
}

void put_arguments(Text &text, const Call &call) {
  for (uint32_t i = 0; i < call.info.argument_count; ++i) {
    const tarvu_contract_argument &argument = call.info.arguments[i];
    put(text, "  ");
    put(text, argument.name);
    put(text, " ");
    uint8_t bytes[sizeof call.argument[i]];
    std::memcpy(bytes, call.argument + i, sizeof bytes);
    put_element(text, argument.type, bytes);
    const bool is_record = argument.target == TARVU_CONTRACT_FMT || argument.target == TARVU_CONTRACT_SCALE;
    if (is_record && call.argument[i] != 0) {
      put(text, " ");
      put_element(text, argument.target, reinterpret_cast<const uint8_t *>(call.argument[i]));
    }
    put(text, "\n");
  }
}

}  // namespace
}  // namespace contract

size_t tarvu_contract_describe(const tarvu_contract_call *call, char *to, size_t room) {
  contract::Text text = {to, room, 0};
  if (room != 0) to[0] = 0;
  const contract::Function *function = contract::function_of(call->function);
  if (function == nullptr) {
    contract::put(text, "no function\n");
    return text.length;
  }
  const tarvu_contract_function_info &info = function->info;
  contract::put(text, info.name);
  contract::put(text, "\n");
  const contract::Call asked = {call->argument, info, 0};
  const contract::Description &description = *function->description;
  if (info.block != nullptr) {
    if (call->argument[0] == 0) return text.length;
    contract::put_block(text, info, reinterpret_cast<const uint8_t *>(call->argument[0]));
  } else {
    contract::put_arguments(text, asked);
  }
  if (description.words != nullptr) description.words(asked, text);
  return text.length;
}
