#include "tests/reference/tarvu_priorbox_reference.h"

#include <cmath>
#include <cstdint>
#include <cstdio>

#include "tests/reference/processor_rules.h"

namespace reference {
namespace {

struct Size {
  float w;
  float h;
};

/// Writes floats to an address of any alignment, one after the other.
struct Writer {
  float *to;
  void put(float value) { store(to++, value); }
};

bool is_near_zero(double difference) { return difference > -1e-6 && difference < 1e-6; }

Size second_size(const _NN_PRIORBOX_WORK *work, uint32_t i) {
  const float product = work->min_sizes[i] * work->max_sizes[i];
  const float s = static_cast<float>(std::sqrt(static_cast<double>(product)));
  return {s, s};
}

Size ratio_size(float m, float ratio) {
  const float t = static_cast<float>(std::sqrt(static_cast<double>(ratio)));
  return {m * t, m / t};
}

struct Scale {
  float step_w;
  float step_h;
  float inv_w;
  float inv_h;
};

Scale scale_of(const _NN_PRIORBOX_WORK *work) {
  Scale scale{};
  scale.step_w = static_cast<float>(work->img_width) / static_cast<float>(work->in_width);
  scale.step_h = static_cast<float>(work->img_height) / static_cast<float>(work->in_height);
  scale.inv_w = static_cast<float>(1.0 / static_cast<double>(work->img_width));
  scale.inv_h = static_cast<float>(1.0 / static_cast<double>(work->img_height));
  return scale;
}

float low_edge_in_float(float centre, float size) {
  const float half = size * 0.5f;
  return centre - half;
}

float high_edge_in_float(float centre, float size) {
  const float half = size * 0.5f;
  return centre + half;
}

float low_edge_through_double(float centre, float size) {
  return static_cast<float>(static_cast<double>(centre) - static_cast<double>(size) * 0.5);
}

float high_edge_through_double(float centre, float size) {
  return static_cast<float>(static_cast<double>(centre) + static_cast<double>(size) * 0.5);
}

void put_box_in_float(Writer &boxes, float cx, float cy, Size size, const Scale &scale) {
  boxes.put(low_edge_in_float(cx, size.w) * scale.inv_w);
  boxes.put(low_edge_in_float(cy, size.h) * scale.inv_h);
  boxes.put(high_edge_in_float(cx, size.w) * scale.inv_w);
  boxes.put(high_edge_in_float(cy, size.h) * scale.inv_h);
}

void put_box_through_double(Writer &boxes, float cx, float cy, Size size, const Scale &scale) {
  boxes.put(low_edge_through_double(cx, size.w) * scale.inv_w);
  boxes.put(low_edge_through_double(cy, size.h) * scale.inv_h);
  boxes.put(high_edge_through_double(cx, size.w) * scale.inv_w);
  boxes.put(high_edge_through_double(cy, size.h) * scale.inv_h);
}

/// Both of these make -0.0 0.0.
float clamp_that_keeps_nan(float x) {
  if (x != x) return x;
  if (!(x > 0.0f)) return 0.0f;
  return x > 1.0f ? 1.0f : x;
}

float clamp_that_drops_nan(float x) {
  if (x != x) return 0.0f;  // before any comparison that a compiler may make a maximum of, which keeps a signalling NaN
  if (x >= 1.0f) return 1.0f;
  return x > 0.0f ? x : 0.0f;
}

uint32_t covered_floats(const _NN_PRIORBOX_WORK *work) {
  return work->in_height * work->in_width * static_cast<uint32_t>(static_cast<int32_t>(work->num_priors)) * 4u;
}

}  // namespace

_QX_RESULT tarvu_priorbox_neon_func(const _NN_PRIORBOX_WORK *work, float *const regions[2]) {
  const Scale scale = scale_of(work);

  Size sizes[4 * 12];
  uint32_t sizes_count = 0;
  for (uint32_t i = 0; i < work->min_size_num; ++i) {
    const float m = work->min_sizes[i];
    sizes[sizes_count++] = {m, m};
    if (work->max_size_num > 0) sizes[sizes_count++] = second_size(work, i);
    for (uint32_t k = 0; k < work->ratio_count; ++k) {
      const float r = work->ratio_list[k];
      if (is_near_zero(static_cast<double>(r) - 1.0)) continue;
      sizes[sizes_count++] = ratio_size(m, r);
    }
  }

  Writer boxes{regions[0]};
  for (uint32_t y = 0; y < work->in_height; ++y) {
    const float cy = (static_cast<float>(y) + work->offset) * scale.step_h;
    for (uint32_t x = 0; x < work->in_width; ++x) {
      const float cx = (static_cast<float>(x) + work->offset) * scale.step_w;
      uint32_t i = 0;
      for (; i + 4 <= sizes_count; i += 4) {
        for (uint32_t lane = 0; lane < 4; ++lane) put_box_in_float(boxes, cx, cy, sizes[i + lane], scale);
      }
      for (; i < sizes_count; ++i) put_box_through_double(boxes, cx, cy, sizes[i], scale);
    }
  }

  const uint32_t n = covered_floats(work);
  if (work->clip != 0) {
    uint32_t i = 0;
    for (; i < n - n % 16; ++i) store(regions[0] + i, clamp_that_keeps_nan(load<float>(regions[0] + i)));
    for (; i < n; ++i) store(regions[0] + i, clamp_that_drops_nan(load<float>(regions[0] + i)));
  }
  for (uint32_t i = 0; i < n; ++i) store(regions[1] + i, work->variances[i % 4]);
  return QX_OK;
}

_QX_RESULT tarvu_priorbox_c_func(const _NN_PRIORBOX_WORK *work, float *const regions[2]) {
  const Scale scale = scale_of(work);

  Writer boxes{regions[0]};
  for (uint32_t y = 0; y < work->in_height; ++y) {
    for (uint32_t x = 0; x < work->in_width; ++x) {
      const float cy = (static_cast<float>(y) + work->offset) * scale.step_h;
      const float cx = (static_cast<float>(x) + work->offset) * scale.step_w;
      for (uint32_t i = 0; i < work->min_size_num; ++i) {
        const float m = work->min_sizes[i];
        put_box_through_double(boxes, cx, cy, {m, m}, scale);
        if (work->max_size_num > 0) put_box_through_double(boxes, cx, cy, second_size(work, i), scale);
        for (uint32_t k = 0; k < work->ratio_count; ++k) {
          const float r = work->ratio_list[k];
          if (is_near_zero(static_cast<double>(r) - 1.0)) continue;
          put_box_through_double(boxes, cx, cy, ratio_size(m, r), scale);
        }
      }
    }
  }

  if (work->clip != 0) {
    const uint32_t n = covered_floats(work);
    for (uint32_t i = 0; i < n; ++i) store(regions[0] + i, clamp_that_drops_nan(load<float>(regions[0] + i)));
  }
  Writer variances{regions[1]};
  for (uint32_t y = 0; y < work->in_height; ++y) {
    for (uint32_t x = 0; x < work->in_width; ++x) {
      for (int32_t prior = 0; prior < work->num_priors; ++prior) {
        for (int32_t i = 0; i < 4; ++i) variances.put(work->variances[i]);
      }
    }
  }
  return QX_OK;
}

_QX_RESULT tarvu_priorbox_process(const _NN_PRIORBOX_PARM *parm) {
  if (parm->in_width == 0 || parm->in_height == 0 || parm->img_width == 0 || parm->img_height == 0 ||
      parm->min_size_num == 0 || parm->aspect_ratios_num == 0 || parm->variance_num == 0) {
    std::printf(
        "\033[1;31mERR:%s() shape should be positive, but input is "
        "%dx%dx%dx%d(img_width x img_height x in_width x in_height),"
        "%dx%dx%dx%d(max_size_num x min_size_num x variance_num x aspect_ratios_num)\r\n\033[0m",
        "tarvu_priorbox_checkparm", static_cast<int32_t>(parm->img_width), static_cast<int32_t>(parm->img_height),
        static_cast<int32_t>(parm->in_width), static_cast<int32_t>(parm->in_height),
        static_cast<int32_t>(parm->max_size_num), static_cast<int32_t>(parm->min_size_num),
        static_cast<int32_t>(parm->variance_num), static_cast<int32_t>(parm->aspect_ratios_num));
    return QX_ERR_PARAM;
  }

  _NN_PRIORBOX_WORK work{};
  work.in_width = parm->in_width;
  work.in_height = parm->in_height;
  work.img_width = parm->img_width;
  work.img_height = parm->img_height;
  work.min_size_num = parm->min_size_num;
  for (uint32_t i = 0; i < parm->min_size_num; ++i) work.min_sizes[i] = parm->min_sizes[i];
  work.flip = parm->flip;
  work.clip = parm->clip;
  work.variance_num = parm->variance_num;
  work.offset = parm->offset;

  work.ratio_list[0] = 1.0f;
  work.ratio_count = 1;
  for (uint32_t i = 0; i < parm->aspect_ratios_num; ++i) {
    const float a = parm->aspect_ratios[i];
    if (a == 0.0f) continue;
    bool duplicate = false;
    for (uint32_t k = 0; k < work.ratio_count; ++k) {
      const float difference = a - work.ratio_list[k];
      if (is_near_zero(static_cast<double>(difference))) duplicate = true;
    }
    if (duplicate) continue;
    work.ratio_list[work.ratio_count++] = a;
    if (parm->flip != 0) work.ratio_list[work.ratio_count++] = 1.0f / a;
  }

  int32_t num_priors = static_cast<int32_t>(work.ratio_count);
  work.max_size_num = parm->max_size_num;
  for (uint32_t i = 0; i < parm->max_size_num; ++i) {
    work.max_sizes[i] = parm->max_sizes[i];
    if (parm->min_sizes[i] < parm->max_sizes[i]) ++num_priors;
  }
  work.num_priors = static_cast<int16_t>(num_priors);

  if (parm->variance_num == 1) {
    if (parm->variances[0] > 0.0f) work.variances[0] = parm->variances[0];
  } else if (parm->variance_num >= 4) {
    for (int32_t i = 0; i < 4; ++i) {
      if (parm->variances[i] > 0.0f) work.variances[i] = parm->variances[i];
    }
  }

  float *const regions[2] = {reinterpret_cast<float *>(parm->out_addr),
                             reinterpret_cast<float *>(parm->out_addr + parm->variance_ofs)};
  return reference::tarvu_priorbox_neon_func(&work, regions);
}

}  // namespace reference
