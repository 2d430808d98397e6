#include "contract/tarvu_check/call_of_json.h"

#include <cctype>
#include <charconv>
#include <cmath>
#include <cstring>
#include <nlohmann/json.hpp>

#include "tarvu.h"

namespace tarvu_check {
namespace {

using Json = nlohmann::json;

/// What a number of a text is held against.
struct IntegerType {
  int bytes;
  bool is_signed;
};

IntegerType integer_type_of(int32_t type) {
  switch (type) {
    case TARVU_CONTRACT_S8:
      return {1, true};
    case TARVU_CONTRACT_U8:
      return {1, false};
    case TARVU_CONTRACT_S16:
      return {2, true};
    case TARVU_CONTRACT_U16:
      return {2, false};
    case TARVU_CONTRACT_S32:
      return {4, true};
    case TARVU_CONTRACT_U32:
      return {4, false};
    default:
      return {8, false};
  }
}

std::string shown(const Json &value) {
  const std::string text = value.dump(-1, ' ', true, Json::error_handler_t::replace);
  return text.size() <= 40 ? text : text.substr(0, 37) + "...";
}

/// The whole of a text as a number.
template <class Number>
bool is_number(const std::string &text, int base, Number &number) {
  const char *end = text.data() + text.size();
  const auto [stop, fault] = std::from_chars(text.data(), end, number, base);
  return fault == std::errc() && stop == end && !text.empty();
}

bool read_integer(const Json &value, const IntegerType &type, uint8_t *to) {
  const int bits = 8 * type.bytes;
  uint64_t number = 0;
  if (value.is_string()) {
    const auto &text = value.get_ref<const std::string &>();
    if (bits < 64 || text.rfind("0x", 0) != 0 || !is_number(text.substr(2), 16, number)) return false;
  } else if (value.is_number_unsigned()) {
    number = value.get<uint64_t>();
    const int value_bits = type.is_signed ? bits - 1 : bits;
    if (value_bits < 64 && number >> value_bits != 0) return false;
  } else if (value.is_number_integer()) {
    const auto negative = value.get<int64_t>();
    if (!type.is_signed || negative < -(int64_t{1} << (bits - 1))) return false;
    number = static_cast<uint64_t>(negative);
  } else {
    return false;
  }
  std::memcpy(to, &number, static_cast<size_t>(type.bytes));
  return true;
}

/// "s3.4" is signed with 3 integer and 4 fraction bits, "u8.0" unsigned.
bool read_format(const Json &value, uint8_t *to) {
  if (!value.is_string()) return false;
  const auto &text = value.get_ref<const std::string &>();
  const size_t point = text.find('.');
  if (point == std::string::npos || (text[0] != 's' && text[0] != 'u')) return false;
  _NN_FMT fmt = {};
  fmt.sign_bits = text[0] == 's' ? 1 : 0;
  if (!is_number(text.substr(1, point - 1), 10, fmt.int_bits)) return false;
  if (!is_number(text.substr(point + 1), 10, fmt.frac_bits)) return false;
  std::memcpy(to, &fmt, sizeof fmt);
  return true;
}

/// A number, or "3/2", whose divisor is a power of two.
bool read_scale(const Json &value, uint8_t *to) {
  double quotient = 0;
  int shift = 0;
  if (value.is_string()) {
    const auto &text = value.get_ref<const std::string &>();
    const size_t slash = text.find('/');
    int32_t numerator = 0;
    if (!is_number(text.substr(0, slash), 10, numerator)) return false;
    quotient = numerator;
    if (slash != std::string::npos) {
      uint64_t divisor = 0;
      if (!is_number(text.substr(slash + 1), 10, divisor) || divisor == 0 || (divisor & (divisor - 1)) != 0)
        return false;
      while (divisor >> shift != 1) ++shift;
    }
  } else if (value.is_number()) {
    quotient = value.get<double>();
    while (shift < INT8_MAX && std::isfinite(quotient) && quotient != std::floor(quotient)) {
      quotient *= 2;
      ++shift;
    }
  } else {
    return false;
  }
  if (!(quotient >= INT32_MIN && quotient <= INT32_MAX) || quotient != std::floor(quotient)) return false;
  _NN_SCALE scale = {};
  scale.scale_value = static_cast<int32_t>(quotient);
  scale.scale_shift = static_cast<int8_t>(shift);
  std::memcpy(to, &scale, sizeof scale);
  return true;
}

/// One element. What is wrong with it, or nothing.
std::string read_element(const std::string &name, int32_t type, const Json &value, uint8_t *to) {
  if (type == TARVU_CONTRACT_FMT) {
    return read_format(value, to) ? "" : name + " is " + shown(value) + "; a format is written as \"s3.4\" or \"u8.0\"";
  }
  if (type == TARVU_CONTRACT_SCALE) {
    return read_scale(value, to)
               ? ""
               : name + " is " + shown(value) + "; a scale is a number or \"3/2\" whose divisor is a power of two";
  }
  if (type == TARVU_CONTRACT_F32) {
    if (!value.is_number()) return name + " is " + shown(value) + "; a number is wanted there";
    const auto number = value.get<float>();
    std::memcpy(to, &number, sizeof number);
    return "";
  }
  const IntegerType wanted = integer_type_of(type);
  if (read_integer(value, wanted, to)) return "";
  return name + " is " + shown(value) + "; " + (wanted.is_signed ? "a signed" : "an unsigned") + " integer of " +
         std::to_string(8 * wanted.bytes) + " bits is wanted there";
}

std::string read_field(const tarvu_contract_field &field, const Json &value, uint8_t *block) {
  uint8_t *to = block + field.offset;
  if (field.count == 1) return read_element(field.name, field.type, value, to);
  if (!value.is_array() || value.size() > field.count) {
    return std::string(field.name) + " is " + shown(value) + "; an array of at most " + std::to_string(field.count) +
           " is wanted there";
  }
  for (size_t i = 0; i < value.size(); ++i) {
    const std::string name = std::string(field.name) + "[" + std::to_string(i) + "]";
    const std::string fault = read_element(name, field.type, value[i], to + i * (field.bytes / field.count));
    if (!fault.empty()) return fault;
  }
  return "";
}

std::string read_argument(const tarvu_contract_argument &argument, const Json &value, Call &made, uint64_t &to) {
  if (argument.target == TARVU_CONTRACT_FMT || argument.target == TARVU_CONTRACT_SCALE) {
    made.records.push_back(std::make_unique<uint64_t[]>(1));
    to = reinterpret_cast<uintptr_t>(made.records.back().get());
    return read_element(argument.name, argument.target, value, reinterpret_cast<uint8_t *>(to));
  }
  if (argument.target == TARVU_CONTRACT_RECORD) {
    return std::string(argument.name) + " is a record, which cannot be written here";
  }
  uint8_t bytes[8] = {};
  std::string fault = read_element(argument.name, argument.type, value, bytes);
  // Integers are extended by the sign of their type.
  const IntegerType type = integer_type_of(argument.type);
  const bool is_negative = argument.type != TARVU_CONTRACT_F32 && type.is_signed && (bytes[type.bytes - 1] & 0x80) != 0;
  for (int i = type.bytes; i < 8 && argument.type != TARVU_CONTRACT_F32; ++i) bytes[i] = is_negative ? 0xFF : 0;
  std::memcpy(&to, bytes, sizeof to);
  return fault;
}

}  // namespace

uint8_t *add_block(Call &made) {
  const tarvu_contract_function_info &info = *tarvu_contract_function_info_of(made.call.function);
  if (info.block == nullptr) return nullptr;
  made.records.push_back(std::make_unique<uint64_t[]>(info.block_bytes / 8 + 1));
  made.call.argument[0] = reinterpret_cast<uintptr_t>(made.records.back().get());
  return reinterpret_cast<uint8_t *>(made.records.back().get());
}

std::string call_of_json(const std::string &text, Call &made) {
  const Json object = Json::parse(text, nullptr, false);
  if (object.is_discarded() || !object.is_object()) return "the input is not one JSON object";
  const auto name = object.find("function");
  if (name == object.end() || !name->is_string()) return "the input has no \"function\" with a name";
  made.call.function = tarvu_contract_function(name->get_ref<const std::string &>().c_str());
  const tarvu_contract_function_info *info = tarvu_contract_function_info_of(made.call.function);
  if (info == nullptr || *name != info->name) return "there is no function " + shown(*name);
  uint8_t *block = add_block(made);
  for (const auto &[key, value] : object.items()) {
    if (key == "function") continue;
    std::string fault = std::string(info->name) + " has no field " + shown(key);
    for (uint32_t i = 0; i < info->field_count; ++i) {
      if (key == info->fields[i].name) fault = read_field(info->fields[i], value, block);
    }
    for (uint32_t i = block != nullptr ? 1 : 0; i < info->argument_count; ++i) {
      if (key == info->arguments[i].name) fault = read_argument(info->arguments[i], value, made, made.call.argument[i]);
    }
    if (!fault.empty()) return fault;
  }
  return "";
}

bool has_address(const Call &made) {
  const tarvu_contract_function_info &info = *tarvu_contract_function_info_of(made.call.function);
  bool found = false;
  for (uint32_t i = 0; i < info.field_count; ++i) {
    const auto *block = reinterpret_cast<const uint8_t *>(made.call.argument[0]);
    uint64_t address = 0;
    if (info.fields[i].type != TARVU_CONTRACT_ADDRESS) continue;
    for (uint32_t k = 0; k < info.fields[i].count; ++k) {
      std::memcpy(&address, block + info.fields[i].offset + k * sizeof address, sizeof address);
      found = found || address != 0;
    }
  }
  for (uint32_t i = info.block != nullptr ? 1 : 0; i < info.argument_count; ++i) {
    const bool is_tensor = info.arguments[i].type == TARVU_CONTRACT_ADDRESS &&
                           info.arguments[i].target != TARVU_CONTRACT_FMT &&
                           info.arguments[i].target != TARVU_CONTRACT_SCALE;
    found = found || (is_tensor && made.call.argument[i] != 0);
  }
  return found;
}

}  // namespace tarvu_check
