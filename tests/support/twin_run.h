/// \file twin_run.h
/// Runs the product and its reference twin over the same memory and tells what differs: result, printed text, every byte of
/// every tracked memory, guard bytes. Needs no test framework, so that fuzz targets use it as well.
#ifndef TARVU_TESTS_SUPPORT_TWIN_RUN_H
#define TARVU_TESTS_SUPPORT_TWIN_RUN_H

#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "tests/support/difference.h"
#include "tests/support/guarded_memory.h"
#include "tests/support/stdout_capture.h"

namespace support {

/// What one call left behind.
struct Outcome {
  int64_t result = 0;
  std::string text;                         ///< printed on standard output
  std::vector<std::vector<uint8_t>> bytes;  ///< of each tracked memory, in the order of track()
};

/// Holds a product call against a reference call over tracked memories.
class TwinRun {
 public:
  /// Content at the time of the call to difference() is what both calls start from.
  void track(const GuardedMemory &memory, std::string name, Element element = Element::k8Bit, RunShape shape = {}) {
    tracked_.push_back({&memory, std::move(name), element, shape, true});
  }

  /// As track(), for memory whose content afterwards is no result. Its guard bytes are.
  void track_scratch(const GuardedMemory &memory) { tracked_.push_back({&memory, "scratch memory", {}, {}, false}); }

  /// Empty if the two calls, which take nothing and return an integer or nothing, leave the same behind.
  template <class Product, class Reference>
  std::string difference(Product product, Reference reference) {
    std::vector<std::vector<uint8_t>> start = contents();
    ours = run(product);
    std::string damage = guard_damage();
    if (!damage.empty()) return "product: " + damage;
    restore(start);
    expected = run(reference);
    damage = guard_damage();
    if (!damage.empty()) return "reference: " + damage;
    restore(ours.bytes);
    return compare();
  }

  Outcome ours;      ///< of the last call to difference(); the memories hold the product's bytes afterwards
  Outcome expected;  ///< of the last call to difference()

 private:
  struct Tracked {
    const GuardedMemory *memory;
    std::string name;
    Element element;
    RunShape shape;
    bool is_result;
  };

  template <class Call>
  Outcome run(Call call) {
    Outcome outcome;
    StdoutCapture capture;
    if constexpr (std::is_void_v<decltype(call())>) {
      call();
    } else {
      outcome.result = static_cast<int64_t>(call());
    }
    outcome.text = capture.text();
    outcome.bytes = contents();
    return outcome;
  }

  std::vector<std::vector<uint8_t>> contents() const {
    std::vector<std::vector<uint8_t>> all;
    for (const Tracked &t : tracked_) all.emplace_back(t.memory->data(), t.memory->data() + t.memory->size());
    return all;
  }

  void restore(const std::vector<std::vector<uint8_t>> &all) const {
    for (size_t i = 0; i < tracked_.size(); ++i) {
      if (!all[i].empty()) std::memcpy(tracked_[i].memory->data(), all[i].data(), all[i].size());
    }
  }

  std::string guard_damage() const {
    for (const Tracked &t : tracked_) {
      const std::string damage = t.memory->guard_damage();
      if (!damage.empty()) return t.name + ": " + damage;
    }
    return {};
  }

  std::string compare() const {
    if (ours.result != expected.result) {
      return "result: product " + std::to_string(ours.result) + ", reference " + std::to_string(expected.result);
    }
    if (ours.text != expected.text) {
      return "printed: product \"" + ours.text + "\", reference \"" + expected.text + "\"";
    }
    for (size_t i = 0; i < tracked_.size(); ++i) {
      const Tracked &t = tracked_[i];
      if (!t.is_result) continue;
      std::string difference = element_difference(t.name, ours.bytes[i].data(), expected.bytes[i].data(),
                                                  ours.bytes[i].size(), t.element, t.shape);
      if (!difference.empty()) return difference;
    }
    return {};
  }

  std::vector<Tracked> tracked_;
};

}  // namespace support

#endif  // TARVU_TESTS_SUPPORT_TWIN_RUN_H
