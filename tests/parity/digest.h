/// \file digest.h
/// Digests of what the operators put out over a fixed set of cases, to hold both targets to the same bits.
#ifndef TARVU_TESTS_PARITY_DIGEST_H
#define TARVU_TESTS_PARITY_DIGEST_H

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace parity {

/// 64-bit FNV-1a over results and output bytes. The payload of a NaN is not part of any result, so NaNs enter as one
/// value.
class Digest {
 public:
  void bytes(const void *address, size_t count) {
    const auto *at = static_cast<const uint8_t *>(address);
    for (size_t i = 0; i < count; ++i) value_ = (value_ ^ at[i]) * 0x100000001B3u;
  }

  void floats(const void *address, size_t count) {
    const auto *at = static_cast<const uint8_t *>(address);
    for (size_t i = 0; i < count; ++i) {
      float element;
      std::memcpy(&element, at + i * sizeof element, sizeof element);
      uint32_t bits = 0x7FC00000;
      if (!std::isnan(element)) std::memcpy(&bits, &element, sizeof bits);
      this->bytes(&bits, sizeof bits);
    }
  }

  void result(int32_t code) { bytes(&code, sizeof code); }

  uint64_t value() const { return value_; }

 private:
  uint64_t value_ = 0xCBF29CE484222325u;
};

/// Named digests in the order in which they were made. Names have no blanks.
class Report {
 public:
  using Observer = std::function<void(const std::string &name)>;

  Report() = default;
  /// `observer` is called when an entry is added: what it watches was done for that entry since the one before it.
  explicit Report(Observer observer) : observer_(std::move(observer)) {}

  void add(std::string name, const Digest &digest) {
    if (observer_) observer_(name);
    entries_.emplace_back(std::move(name), digest.value());
  }
  const std::vector<std::pair<std::string, uint64_t>> &entries() const { return entries_; }

 private:
  Observer observer_;
  std::vector<std::pair<std::string, uint64_t>> entries_;
};

/// One function per subsystem, in <subsystem>_cases.cpp: one entry or more for each of its operators. Inputs come
/// from support::Random with seeds of their own, and no entry depends on another, so that one added leaves the rest
/// as they are.
void add_activation_cases(Report &report);
void add_convert_cases(Report &report);
void add_detection_cases(Report &report);
void add_eltwise_cases(Report &report);
void add_entry_point_cases(Report &report);
void add_lstm_cases(Report &report);
void add_resample_cases(Report &report);
void add_norm_cases(Report &report);
void add_pool_cases(Report &report);
void add_select_cases(Report &report);
void add_softmax_cases(Report &report);
void add_tensor_cases(Report &report);

struct Subsystem {
  const char *name;
  void (*add_cases)(Report &);
};

/// All of them, in the order of the report. They may run on any thread, several at a time.
inline constexpr Subsystem kSubsystems[] = {
    {"activation", add_activation_cases},
    {"convert", add_convert_cases},
    {"detection", add_detection_cases},
    {"eltwise", add_eltwise_cases},
    {"entry_point", add_entry_point_cases},
    {"lstm", add_lstm_cases},
    {"resample", add_resample_cases},
    {"norm", add_norm_cases},
    {"pool", add_pool_cases},
    {"select", add_select_cases},
    {"softmax", add_softmax_cases},
    {"tensor", add_tensor_cases},
};

}  // namespace parity

#endif  // TARVU_TESTS_PARITY_DIGEST_H
