// Tensors and scratch memory of floats and 16-bit elements at addresses of every remainder modulo 4. The results are those of an
// aligned address; where an access is not made for any address, the undefined-behaviour sanitizer names it.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tarvu.h"
#include "tests/parity/digest.h"
#include "tests/support/formats.h"
#include "tests/support/guarded_memory.h"
#include "tests/support/random.h"

namespace {

using support::format;
using support::scale;

/// Memories of one call, all as many bytes off a multiple of 4. Their contents depend on the order of the calls alone.
class Memories {
 public:
  explicit Memories(size_t misalign) : misalign_(misalign), random_(1701) {}

  uint64_t floats(size_t count) {
    const support::GuardedMemory &memory = take(count * sizeof(float));
    random_.fill_floats(memory.data(), count, -9.0f, 9.0f);
    return memory.address();
  }

  /// Elements of `width` bits; 32 are floats.
  uint64_t tensor(int width, size_t count) {
    if (width == 32) return floats(count);
    const support::GuardedMemory &memory = take(count * static_cast<size_t>(width / 8));
    random_.fill(memory.data(), memory.size());
    return memory.address();
  }

  parity::Digest digest(int32_t result) const {
    parity::Digest digest;
    digest.result(result);
    for (const auto &memory : memories_) {
      EXPECT_EQ(std::string(), memory->guard_damage());
      digest.floats(memory->data(), memory->size() / sizeof(float));
      digest.bytes(memory->data() + memory->size() / sizeof(float) * sizeof(float), memory->size() % sizeof(float));
    }
    return digest;
  }

 private:
  const support::GuardedMemory &take(size_t bytes) {
    memories_.push_back(
        std::make_unique<support::GuardedMemory>(bytes, support::Placement{support::Fault::kInFront, 4, misalign_}));
    return *memories_.back();
  }

  size_t misalign_;
  support::Random random_;
  std::vector<std::unique_ptr<support::GuardedMemory>> memories_;
};

/// Calls call(memories), which returns a result code, at each remainder.
template <class Call>
void expect_same_at_any_address(Call call, const std::string &what) {
  const auto digest_at = [&call](size_t misalign) {
    Memories memories(misalign);
    return memories.digest(call(memories)).value();
  };
  const uint64_t aligned = digest_at(0);
  for (size_t misalign = 1; misalign < 4; ++misalign)
    EXPECT_EQ(aligned, digest_at(misalign)) << what << ", " << misalign;
}

constexpr uint16_t kWidth = 37;
constexpr uint16_t kHeight = 5;
constexpr uint16_t kChannels = 7;
constexpr size_t kCount = size_t{kWidth} * kHeight * kChannels;
constexpr int kWidths[] = {8, 16, 32};

/// The head that several blocks share, for one dense item.
template <class Parm>
Parm block(Memories &memories, int in_width, int out_width, size_t scratch_floats) {
  Parm parm{};
  parm.in_addr = memories.tensor(in_width, kCount);
  parm.out_addr = memories.tensor(out_width, kCount);
  parm.work_buffer = memories.floats(scratch_floats);
  parm.width = kWidth;
  parm.height = kHeight;
  parm.channel = kChannels;
  parm.batch = 1;
  parm.in_fmt = format(in_width, 4, 1);
  parm.out_fmt = format(out_width, out_width == 32 ? 0 : out_width - 3, 1);
  parm.in_scale = scale(3, 1);
  parm.out_scale = scale(3, 2);
  return parm;
}

template <class Parm, class Process>
void softmax_at_any_address(Process process) {
  for (const int in_width : kWidths) {
    for (const int out_width : kWidths) {
      for (const int axis : {-1, 1, 2, 3}) {
        const auto call = [=](Memories &memories) {
          auto parm = block<Parm>(memories, in_width, out_width, 2 * kCount);
          parm.in_batch_ofs = parm.out_batch_ofs = 4 * kCount;
          parm.axis = static_cast<int8_t>(axis);
          return process(&parm);
        };
        expect_same_at_any_address(call, std::to_string(in_width) + " to " + std::to_string(out_width));
      }
    }
  }
}

TEST(AnyAddress, Softmax) {
  softmax_at_any_address<_NN_SOFTMAX_PARM>(tarvu_softmax_process);
  softmax_at_any_address<_NN_SOFTMAX_PARM>(tarvu_softmax_process_0);
  softmax_at_any_address<_NN_SOFTMAX_ASYM_PARM>(tarvu_softmax_asym_process);
}

TEST(AnyAddress, Lrn) {
  for (const int width : kWidths) {
    const auto call = [=](Memories &memories) {
      auto parm = block<_NN_LRN_PARM>(memories, width, width, 4 * kCount + 4 * kWidth * kHeight);
      parm.local_size = 5;
      parm.lrn_k = 1;
      parm.alpha = 0.5f;
      parm.beta = 0.75f;
      return tarvu_lrn_process(&parm);
    };
    expect_same_at_any_address(call, std::to_string(width));
  }
}

TEST(AnyAddress, Norm) {
  for (const int in_width : kWidths) {
    for (const int out_width : kWidths) {
      for (int mode = 0; mode < 4; ++mode) {
        const auto call = [=](Memories &memories) {
          auto parm = block<_NN_NORM_PARM>(memories, in_width, out_width, 2 * kCount);
          parm.scale_addr = memories.floats(kChannels);
          parm.norm_whole_item = static_cast<uint8_t>(mode / 2);
          parm.shared_scale = static_cast<uint8_t>(mode % 2);
          parm.eps = 1e-3f;
          return tarvu_norm_process(&parm);
        };
        expect_same_at_any_address(call, std::to_string(in_width) + " to " + std::to_string(out_width));
      }
    }
  }
}

TEST(AnyAddress, LayerNormalisation) {
  for (const int in_width : kWidths) {
    for (const int out_width : kWidths) {
      for (const int axis : {1, 2, 3}) {
        for (const auto process : {tarvu_layernorm_process, tarvu_layernorm_process_neon}) {
          const auto call = [=](Memories &memories) {
            auto parm = block<_NN_LAYERNORM_PARM>(memories, in_width, out_width, 2 * kCount);
            parm.gamma_addr = memories.floats(kCount);
            parm.beta_addr = memories.floats(kCount);
            parm.eps = 1e-3f;
            parm.axis = axis;
            return process(&parm);
          };
          expect_same_at_any_address(call, std::to_string(in_width) + " to " + std::to_string(out_width));
        }
      }
    }
  }
}

TEST(AnyAddress, Conversions) {
  constexpr uint32_t kShape[] = {kWidth, kHeight, kChannels, 1, 1, 1};
  constexpr uint32_t kStride[] = {0, kWidth, kWidth * kHeight, 0, 0, 0};
  for (const int width : {8, 16}) {
    for (const int sign_bits : {0, 1}) {
      const _NN_FMT fmt = format(width, 3, sign_bits);
      const _NN_SCALE times = scale(3, 1);
      const auto call = [=](Memories &memories) {
        auto *floats = reinterpret_cast<float *>(memories.floats(kCount));
        auto *integers = reinterpret_cast<uint8_t *>(memories.tensor(width, kCount));
        const auto next_floats = [&] { return reinterpret_cast<float *>(memories.floats(kCount)); };
        const auto next_integers = [&] { return reinterpret_cast<uint8_t *>(memories.tensor(width, kCount)); };
        tarvu_fixtofloat_neon(integers, next_floats(), kCount, &fmt, &times);
        tarvu_fixtofloat_1d_neon(integers, next_floats(), kCount, &fmt, &times, 9);
        tarvu_fixtofloat_nd_neon(integers, next_floats(), kShape, kStride, &fmt, &times, 9);
        tarvu_floattofix_neon(floats, next_integers(), kCount, &fmt, &times);
        tarvu_floattofix_1d_neon(floats, next_integers(), kCount, &fmt, &times, 9);
        tarvu_floattofix_nd_neon(floats, next_integers(), kShape, kStride, &fmt, &times, 9);
        for (uint32_t code = 0; code < 11; ++code) {
          tarvu_floattofix_rnd_neon(floats, next_integers(), kCount, &fmt, &times, code);
        }
        if (width == 16) dataTransform_u16tofloat(reinterpret_cast<int16_t *>(integers), next_floats(), 3, kCount);
        return 0;
      };
      expect_same_at_any_address(call, std::to_string(width));
    }
  }
}

TEST(AnyAddress, ConversionsOf32BitElements) {
  const auto call = [](Memories &memories) {
    auto *floats = reinterpret_cast<float *>(memories.floats(kCount));
    const auto next = [&] { return memories.floats(kCount); };
    floattoint32_neon(floats, reinterpret_cast<int32_t *>(next()), 3, kCount, 1.5f);
    floattouint32_neon(floats, reinterpret_cast<uint32_t *>(next()), 3, kCount, 1.5f);
    floattoint32_rnd_neon(floats, reinterpret_cast<int32_t *>(next()), 3, kCount, 6, 1.5f);
    floattouint32_rnd_neon(floats, reinterpret_cast<uint32_t *>(next()), 3, kCount, 6, 1.5f);
    int32tofloat_neon(reinterpret_cast<int32_t *>(floats), reinterpret_cast<float *>(next()), 3, kCount, 1.5f);
    uint32tofloat_neon(reinterpret_cast<uint32_t *>(floats), reinterpret_cast<float *>(next()), 3, kCount, 1.5f);
    return 0;
  };
  expect_same_at_any_address(call, "32-bit elements");
}

}  // namespace
