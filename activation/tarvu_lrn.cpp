// Local response normalisation across channels: a sliding sum of squares for each position, and an approximate power of it.
#include <cstdio>

#include "convert/format_entry.h"
#include "frame/memory.h"
#include "simd/default_nan.h"

namespace tarvu {
namespace {

// The approximate power: the bits of a positive float, read as an integer, are near a linear function of its logarithm.

constexpr uint32_t kPowBitsOffset = 0xC0876C08;    // minus 1064866808, modulo 2^32
constexpr float kPowResultOffset = 1064866816.0f;  // the same to the nearest float
static_assert(std::bit_cast<uint32_t>(kPowResultOffset) == 0x4E7DE250);

/// Bits less the offset, wrapping, as a signed integer; and an integer as the bits of a float.
int32_t pow_exponent(float x) { return static_cast<int32_t>(std::bit_cast<uint32_t>(x) + kPowBitsOffset); }
float from_bits(int32_t bits) { return std::bit_cast<float>(bits); }
s32xn pow_exponent(f32xn x) { return s32xn(u32xn(x) + kPowBitsOffset); }
f32xn from_bits(s32xn bits) { return f32xn(bits); }

/// x^p for one float or for lanes: every step rounded, the last converted towards zero with saturation, NaN to 0.
template <class V>
V fast_pow_step(V x, float p) {
  const V scaled = to_f32(pow_exponent(x)) * p;
  const V shifted = scaled + kPowResultOffset;
  return from_bits(to_s32(shifted));
}

/// One batch item of `channels` planes.
struct Item {
  const float *in;
  float *out;
  uint32_t channels;
  size_t plane;   // floats
  int64_t first;  // channel at the lower end of channel 0's window; below 0 the window holds zeros
  int64_t last;   // channel at its upper end
  float start;    // k / alpha_n, which every sum begins with
  float alpha_n;
  float exponent;  // -beta
};

/// Where the squares and sums of an item are kept for the caller, or nowhere.
struct Kept {
  float *squares;  // of the item itself, behind `half` planes of zeros
  float *sums;
};

/// `count` vectors of neighbouring positions.
template <class V, int count>
struct Columns {
  V lanes[count];
};

template <class V, int count>
Columns<V, count> load_columns(const float *from) {
  Columns<V, count> columns;
  for (int v = 0; v < count; ++v) columns.lanes[v] = load<V>(from + v * kLanes<V>);
  return columns;
}

template <class V, int count>
void store_columns(const Columns<V, count> &columns, float *to) {
  for (int v = 0; v < count; ++v) store(to + v * kLanes<V>, columns.lanes[v]);
}

/// The squares of a channel at some positions: from the input, or from the kept squares, which stay right where the output
/// overwrites the input. Channels outside the item are zero.
template <bool keeps, class V, int count>
Columns<V, count> squares_of(const Item &item, const Kept &kept, int64_t channel, size_t position) {
  Columns<V, count> squares{};
  if (channel < 0 || channel >= item.channels) return squares;
  const size_t at = static_cast<size_t>(channel) * item.plane + position;
  if constexpr (keeps) {
    squares = load_columns<V, count>(kept.squares + at);
  } else {
    squares = load_columns<V, count>(item.in + at);
    for (V &x : squares.lanes) x = x * x;
  }
  return squares;
}

/// All channels of `count` vectors of positions, the sums in registers. The sum slides by one addition and one subtraction a
/// channel, so its rounding errors run on along the channels.
template <bool keeps, class V, int count>
void normalise_columns(const Item &item, const Kept &kept, size_t position) {
  Columns<V, count> sums;
  for (V &sum : sums.lanes) sum = fill<V>(item.start);
  const auto add = [&](const Columns<V, count> &squares) {
    for (int v = 0; v < count; ++v) sums.lanes[v] = add_default_nan(sums.lanes[v], squares.lanes[v]);
  };
  const auto finish_channel = [&](size_t at) {
    if constexpr (keeps) store_columns<V, count>(sums, kept.sums + at);
    Columns<V, count> x = load_columns<V, count>(item.in + at);
    for (int v = 0; v < count; ++v) {
      const V term = multiply_default_nan(sums.lanes[v], fill<V>(item.alpha_n));
      x.lanes[v] = x.lanes[v] * fast_pow_step(term, item.exponent);
    }
    store_columns<V, count>(x, item.out + at);
  };

  // Zeros on either side of the item count once: a second zero changes no sum.
  if (item.first < 0 && item.last >= item.first) add({});
  const int64_t last_inside = std::min<int64_t>(item.last, int64_t{item.channels} - 1);
  for (int64_t channel = std::max<int64_t>(item.first, 0); channel <= last_inside; ++channel) {
    add(squares_of<keeps, V, count>(item, kept, channel, position));
  }
  if (item.last > last_inside) add({});
  finish_channel(position);

  for (uint32_t c = 1; c < item.channels; ++c) {
    add(squares_of<keeps, V, count>(item, kept, item.last + c, position));
    const Columns<V, count> leaving = squares_of<keeps, V, count>(item, kept, item.first + c - 1, position);
    for (int v = 0; v < count; ++v) sums.lanes[v] = subtract_default_nan(sums.lanes[v], leaving.lanes[v]);
    finish_channel(c * item.plane + position);
  }
}

template <bool keeps>
void normalise(const Item &item, const Kept &kept) {
  constexpr size_t kTile = 32;  // positions whose sums stay in registers
  constexpr size_t kVector = kLanes<f32xn>;
  if (item.channels == 0) return;
  size_t position = 0;
  for (; item.plane - position >= kTile; position += kTile) {
    normalise_columns<keeps, f32xn, kTile / kVector>(item, kept, position);
  }
  for (; item.plane - position >= kVector; position += kVector)
    normalise_columns<keeps, f32xn, 1>(item, kept, position);
  for (; position < item.plane; ++position) normalise_columns<keeps, float, 1>(item, kept, position);
}

/// The value that a sum starts with, so that one product with alpha_n at the end gives k + alpha_n * sum.
template <class K>
float start_of_sums(K lrn_k, float alpha_n) {
  const auto divisor = static_cast<double>(alpha_n);
  const auto quotient = static_cast<float>(static_cast<double>(lrn_k) / divisor);
  if (alpha_n != alpha_n) return quotient;  // quiet, which alpha_n need not be
  return with_default_nan(quotient, alpha_n, alpha_n);
}

Item item_of(const float *in, float *out, float start, uint32_t local_size, uint32_t channels, float alpha_n,
             float beta, uint32_t plane, uint32_t half) {
  return {in, out, channels, plane, -int64_t{half}, int64_t{local_size} - 1 - half, start, alpha_n, -beta};
}

/// The exported kernels: the caller's arrays hold the squares, with zeros around them, and the sums. The double power with the
/// exponent 2.0, rounded to float, is the float product: both round the exact square once.
template <class K>
int32_t normalise_items(const float *in, float *out, float *sums, float *squares, K lrn_k, uint32_t num,
                        uint32_t local_size, uint32_t channels, float alpha_n, float beta, uint32_t width,
                        uint32_t height, uint32_t half) {
  const uint32_t plane = width * height;
  const uint32_t item_floats = channels * plane;
  const uint32_t squares_floats = (channels + local_size - 1) * plane;
  const uint32_t zeros_in_front = half * plane;
  const float start = start_of_sums(lrn_k, alpha_n);
  for (uint32_t item = 0; item < num; ++item, in += item_floats, out += item_floats, sums += item_floats) {
    for (uint32_t i = 0; i < squares_floats; ++i) store(squares + i, 0.0f);
    for (uint32_t i = 0; i < item_floats; ++i) {
      const auto x = load<float>(in + i);
      store(squares + zeros_in_front + i, x * x);
    }
    normalise<true>(item_of(in, out, start, local_size, channels, alpha_n, beta, plane, half),
                    {squares + zeros_in_front, sums});
  }
  return 0;
}

_QX_RESULT check(const _NN_LRN_PARM &parm) {
  if ((parm.local_size & 1u) == 0) {
    std::printf("\033[1;31mERR:%s() LRN only supports odd values for local_size!\r\n\033[0m", "tarvu_lrn_process");
    return QX_ERR_PARAM;
  }
  const bool empty = parm.batch == 0 || parm.channel == 0 || parm.width == 0 || parm.height == 0;
  if (!empty && !(parm.beta <= 0.0f) && !(parm.alpha <= 0.0f)) return QX_OK;
  std::printf(
      "\033[1;31mERR:%s() shape should be positive, but input is %dx%dx%dx%d(num x channels x width x "
      "height),%dx%fx%f(size x "
      "beta x alpha)\r\n\033[0m",
      "tarvu_lrn_checkparm", parm.batch, parm.channel, parm.width, parm.height, static_cast<int32_t>(parm.local_size),
      static_cast<double>(parm.beta), static_cast<double>(parm.alpha));
  return QX_ERR_PARAM;
}

bool is_fixed(const _NN_FMT &fmt) { return width_bits(fmt) == 8 || width_bits(fmt) == 16; }

/// Kept: signed is any sign_bits but 0 here.
void to_floats(const uint8_t *from, float *to, uint32_t count, const _NN_FMT &fmt, float scale) {
  with_element_of(width_bits(fmt), fmt.sign_bits != 0, [=, &fmt](auto element) {
    using T = decltype(element);
    Kernels<T>::to_floats(reinterpret_cast<const T *>(from), to, fmt.frac_bits, count, scale);
  });
}

void from_floats(const float *from, uint8_t *to, uint32_t count, const _NN_FMT &fmt, float scale) {
  with_element_of(width_bits(fmt), fmt.sign_bits != 0, [=, &fmt](auto element) {
    using T = decltype(element);
    Kernels<T>::from_floats(from, reinterpret_cast<T *>(to), fmt.frac_bits, count, scale);
  });
}

}  // namespace
}  // namespace tarvu

float fast_Pow(float x, float p) { return tarvu::fast_pow_step(x, p); }

int32_t tarvu_lrn_neon_func(const float *in, float *out, float *sums, float *squares, int32_t lrn_k, uint32_t num,
                            uint32_t local_size, uint32_t channels, float alpha_n, float beta, uint32_t width,
                            uint32_t height, uint32_t half) {
  return tarvu::normalise_items(in, out, sums, squares, lrn_k, num, local_size, channels, alpha_n, beta, width, height,
                                half);
}

// Kept: takes k as unsigned.
int32_t tarvu_lrn_c_func(const float *in, float *out, float *sums, float *squares, int32_t lrn_k, uint32_t num,
                         uint32_t local_size, uint32_t channels, float alpha_n, float beta, uint32_t width,
                         uint32_t height, uint32_t half) {
  return tarvu::normalise_items(in, out, sums, squares, static_cast<uint32_t>(lrn_k), num, local_size, channels,
                                alpha_n, beta, width, height, half);
}

_QX_RESULT tarvu_lrn_process(const _NN_LRN_PARM *parm) {
  using namespace tarvu;
  const _QX_RESULT result = check(*parm);
  if (result != QX_OK) return result;
  const uint32_t plane = uint32_t{parm->width} * parm->height;
  const uint32_t item_floats = parm->channel * plane;
  const uint32_t total = parm->batch * item_floats;
  uint64_t cursor = parm->work_buffer;
  auto *sums = static_cast<float *>(tarvu_getbuffrom(&cursor, total * 4));
  auto *squares = static_cast<float *>(tarvu_getbuffrom(&cursor, (parm->channel + parm->local_size - 1) * plane * 4));
  auto *float_in = static_cast<float *>(tarvu_getbuffrom(&cursor, item_floats * 4));
  auto *float_out = static_cast<float *>(tarvu_getbuffrom(&cursor, item_floats * 4));
  const float alpha_n = parm->alpha / static_cast<float>(parm->local_size);
  const float start = start_of_sums(parm->lrn_k, alpha_n);
  const uint32_t half = (parm->local_size - 1) >> 1;
  const float in_scale = scale_of(parm->in_scale);
  const float out_scale = scale_of(parm->out_scale);
  const auto *in = pointer<const uint8_t>(parm->in_addr);
  uint8_t *out = pointer(parm->out_addr);
  for (uint32_t item = 0; item < parm->batch; ++item, in += parm->in_batch_ofs, out += parm->out_batch_ofs) {
    // Kept: both conversions run over the whole tensor's count for every item.
    if (is_fixed(parm->in_fmt)) to_floats(in, float_in, total, parm->in_fmt, in_scale);
    const float *source = is_fixed(parm->in_fmt) ? float_in : reinterpret_cast<const float *>(in);
    float *destination = is_fixed(parm->out_fmt) ? float_out : reinterpret_cast<float *>(out);
    const uint64_t item_bytes = uint64_t{item_floats} * sizeof(float);
    if (lie_apart(memory_of(source, item_bytes), memory_of(destination, item_bytes))) {
      normalise<false>(
          item_of(source, destination, start, parm->local_size, parm->channel, alpha_n, parm->beta, plane, half),
          {nullptr, nullptr});
    } else {
      tarvu_lrn_neon_func(source, destination, sums, squares, parm->lrn_k, 1, parm->local_size, parm->channel, alpha_n,
                          parm->beta, parm->width, parm->height, half);
    }
    if (is_fixed(parm->out_fmt)) from_floats(float_out, out, total, parm->out_fmt, out_scale);
  }
  return QX_OK;
}
