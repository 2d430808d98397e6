// The table of functions: names, arguments and blocks come from the header's own prototypes and records.
#include "contract/functions.h"

#include <type_traits>

namespace contract {
namespace {

template <class T>
constexpr int32_t type_of() {
  using Plain = std::remove_cv_t<T>;
  if constexpr (std::is_void_v<Plain>) return TARVU_CONTRACT_NONE;
  if constexpr (std::is_same_v<Plain, int8_t>) return TARVU_CONTRACT_S8;
  if constexpr (std::is_same_v<Plain, uint8_t>) return TARVU_CONTRACT_U8;
  if constexpr (std::is_same_v<Plain, int16_t>) return TARVU_CONTRACT_S16;
  if constexpr (std::is_same_v<Plain, uint16_t>) return TARVU_CONTRACT_U16;
  if constexpr (std::is_same_v<Plain, int32_t> || std::is_enum_v<Plain>) return TARVU_CONTRACT_S32;
  if constexpr (std::is_same_v<Plain, uint32_t>) return TARVU_CONTRACT_U32;
  if constexpr (std::is_same_v<Plain, float>) return TARVU_CONTRACT_F32;
  if constexpr (std::is_pointer_v<Plain> || std::is_same_v<Plain, uint64_t>) return TARVU_CONTRACT_ADDRESS;
  if constexpr (std::is_same_v<Plain, _NN_FMT>) return TARVU_CONTRACT_FMT;
  if constexpr (std::is_same_v<Plain, _NN_SCALE>) return TARVU_CONTRACT_SCALE;
  return TARVU_CONTRACT_RECORD;
}

template <class T>
constexpr tarvu_contract_argument argument_of() {
  if constexpr (std::is_pointer_v<T>) {
    using Target = std::remove_pointer_t<T>;
    return {nullptr, TARVU_CONTRACT_ADDRESS,
            std::is_void_v<Target> ? int32_t{TARVU_CONTRACT_BYTES} : type_of<Target>()};
  } else {
    return {nullptr, type_of<T>(), TARVU_CONTRACT_NONE};
  }
}

#define RECORD(record)
#define FIELD(record, field)                                                           \
  {#field, offsetof(record, field), sizeof(record::field),                             \
   sizeof(record::field) / sizeof(std::remove_all_extents_t<decltype(record::field)>), \
   type_of<std::remove_all_extents_t<decltype(record::field)>>()},
constexpr tarvu_contract_field kFields[] = {
#include "contract/fields.inc"
};
#undef RECORD
#undef FIELD

/// One line of fields.inc.
struct FieldLine {
  const char *record;
  bool is_field;
};
#define RECORD(record) {#record, false},
#define FIELD(record, field) {#record, true},
constexpr FieldLine kFieldLines[] = {
#include "contract/fields.inc"
};
#undef RECORD
#undef FIELD

constexpr bool equal(const char *a, const char *b) {
  for (; *a != 0 && *a == *b; ++a, ++b) {
  }
  return *a == *b;
}

constexpr tarvu_contract_function_info with_fields(tarvu_contract_function_info info, const char *record,
                                                   size_t bytes) {
  const tarvu_contract_field *field = kFields;
  for (const FieldLine &line : kFieldLines) {
    if (equal(line.record, record)) {
      if (line.is_field) ++info.field_count;
      if (!line.is_field) info.fields = field;
    }
    if (line.is_field) ++field;
  }
  info.block = record;
  info.block_bytes = static_cast<uint32_t>(bytes);
  return info;
}

/// Only records that a function takes as its first argument by the name of a block are blocks.
template <class First>
constexpr tarvu_contract_function_info with_block(tarvu_contract_function_info info) {
  using Block = std::remove_cv_t<std::remove_pointer_t<First>>;
  (void)info;
#define RECORD(record) \
  if constexpr (std::is_same_v<Block, record>) return with_fields(info, #record, sizeof(record));
#define FIELD(record, field)
  if constexpr (type_of<Block>() == TARVU_CONTRACT_RECORD && !std::is_same_v<Block, _NN_NMS_OBJ>) {
#include "contract/fields.inc"
  }
#undef RECORD
#undef FIELD
  return info;
}

template <class Prototype>
struct Reader;
template <class Result, class... Arguments>
struct Reader<Result (*)(Arguments...)> {
  static_assert(sizeof...(Arguments) <= TARVU_CONTRACT_ARGUMENTS);
  static constexpr tarvu_contract_function_info info(const char *name, bool described,
                                                     std::initializer_list<const char *> names) {
    tarvu_contract_function_info info = {};
    info.name = name;
    info.argument_count = sizeof...(Arguments);
    uint32_t at = 0;
    ((info.arguments[at++] = argument_of<Arguments>()), ...);
    at = 0;
    for (const char *argument : names) info.arguments[at++].name = argument;
    if (at != info.argument_count) __builtin_unreachable();  // not a constant: a name too many or too few
    info.result = type_of<Result>();
    info.described = described ? 1 : 0;
    return first_argument<Arguments...>(info);
  }
  template <class... None>
  static constexpr tarvu_contract_function_info first_argument(tarvu_contract_function_info info) requires(
      sizeof...(None) == 0) {
    return info;
  }
  template <class First, class... Rest>
  static constexpr tarvu_contract_function_info first_argument(tarvu_contract_function_info info) {
    return with_block<First>(info);
  }
};

#define FUNCTION(name, description, ...) \
  {Reader<decltype(&::name)>::info(#name, !equal(#description, "kNotDescribed"), {__VA_ARGS__}), &description},
constexpr Function kFunctions[] = {
#include "contract/functions.inc"
};
#undef FUNCTION

constexpr int32_t kFunctionCount = static_cast<int32_t>(sizeof kFunctions / sizeof kFunctions[0]);

}  // namespace

const Description kNotDescribed = {};

const Function *function_of(int32_t number) {
  return number >= 0 && number < kFunctionCount ? kFunctions + number : nullptr;
}

}  // namespace contract

int32_t tarvu_contract_function(const char *name) {
  for (int32_t i = 0; i < contract::kFunctionCount; ++i) {
    if (contract::equal(contract::kFunctions[i].info.name, name)) return i;
  }
  return -1;
}

int32_t tarvu_contract_function_count(void) { return contract::kFunctionCount; }

const tarvu_contract_function_info *tarvu_contract_function_info_of(int32_t function) {
  const contract::Function *found = contract::function_of(function);
  return found == nullptr ? nullptr : &found->info;
}
