// Colour matching on a 1920x1080 4:2:2 picture, in cache: the statistics
// beside cv::meanStdDev of the same bytes; one procamp pass (tables and walk)
// beside its scalar model, a memcpy of the picture and cv::LUT doing the same
// correction (one 256-entry table per byte of a macro-pixel, which at a hue
// of 0 is the same mapping); and a whole search on a pair that settles.
// Bytes processed are the picture's bytes.
#include <benchmark/benchmark.h>

#include <sight/color_matching/color_matching.h>
#include <sight/color_matching/procamp_kernels.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "color_matching/procamp_model.h"

#ifdef SIGHT_HAVE_OPENCV
#include <opencv2/core.hpp>
#endif

namespace {

using Korvane::Sight::color_matching;
using Korvane::Sight::ycbcr_bitmap;
namespace D = Korvane::Sight::detail;

constexpr int frame_width = 1920;
constexpr int frame_lines = 1080;
constexpr int line_bytes = frame_width / 2 * 4;
constexpr std::size_t frame_bytes = std::size_t(line_bytes) * frame_lines;

// A 4:2:2 picture at a stride of one line, 16-byte aligned or one byte off:
// smooth luma and chroma ramps with a little noise, each byte through
// `tone` (channel 0 to 3 as Cb, Y0, Cr, Y1).
class frame_memory {
 public:
  template <class Tone>
  frame_memory(bool aligned, Tone tone) {
    if (posix_memalign(reinterpret_cast<void **>(&base_), 16, frame_bytes + 16) != 0) std::abort();
    data_ = base_ + (aligned ? 0 : 1);
    std::uint32_t noise = 1;
    for (int y = 0; y < frame_lines; ++y)
      for (int x = 0; x < line_bytes; ++x) {
        noise = noise * 1664525u + 1013904223u;
        int const ramp = x % 2 ? 40 + (x / 2 + y) * 160 / (frame_width + frame_lines) : 96 + (x / 4 + y) % 64;
        data_[std::size_t(y) * line_bytes + x] = std::uint8_t(tone(x % 4, ramp + int(noise >> 29)));
      }
  }
  explicit frame_memory(bool aligned) : frame_memory(aligned, [](int, int v) { return v; }) {}
  ~frame_memory() { std::free(base_); }
  frame_memory(frame_memory const &) = delete;
  frame_memory &operator=(frame_memory const &) = delete;
  std::uint8_t *data() const { return data_; }
  ycbcr_bitmap bitmap() const {
    return {reinterpret_cast<Tamarind::Rasters::pixel_ycbcr_u8 *>(data_), frame_width, frame_lines, line_bytes, false};
  }

 private:
  std::uint8_t *base_ = nullptr;
  std::uint8_t *data_ = nullptr;
};

procamp_model::settings const correction{0.03f, 1.15f, 1.1f, 0.02f, -0.015f};

void BM_image_statistics_422(benchmark::State &state) {
  frame_memory const frame(true);
  for (auto _ : state) {
    color_matching::image_statistics const s(frame.bitmap());
    benchmark::DoNotOptimize(s.cr_variance);
  }
  state.SetBytesProcessed(std::int64_t(state.iterations()) * std::int64_t(frame_bytes));
}
BENCHMARK(BM_image_statistics_422)->Unit(benchmark::kMillisecond);

void BM_apply_procamp_422(benchmark::State &state) {
  bool const aligned = state.range(0) != 0;
  frame_memory const source(true), destination(aligned);
  for (auto _ : state) {
    D::procamp_tables tables;
    D::make_procamp_tables({correction.brightness, correction.contrast, correction.saturation, correction.u_offset,
                            correction.v_offset},
                           tables);
    if (aligned)
      D::apply_procamp_422<true>(tables, source.bitmap(), destination.bitmap());
    else
      D::apply_procamp_422<false>(tables, source.bitmap(), destination.bitmap());
    benchmark::DoNotOptimize(destination.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(std::int64_t(state.iterations()) * std::int64_t(frame_bytes));
}
BENCHMARK(BM_apply_procamp_422)->ArgName("aligned")->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);

void BM_apply_procamp_422_model(benchmark::State &state) {
  frame_memory const source(true), destination(true);
  for (auto _ : state) {
    procamp_model::apply(correction, source.data(), line_bytes, frame_width, frame_lines, destination.data(), line_bytes);
    benchmark::DoNotOptimize(destination.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(std::int64_t(state.iterations()) * std::int64_t(frame_bytes));
}
BENCHMARK(BM_apply_procamp_422_model)->Unit(benchmark::kMillisecond);

void BM_apply_procamp_422_memcpy(benchmark::State &state) {
  frame_memory const source(true), destination(true);
  for (auto _ : state) {
    std::memcpy(destination.data(), source.data(), frame_bytes);
    benchmark::DoNotOptimize(destination.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(std::int64_t(state.iterations()) * std::int64_t(frame_bytes));
}
BENCHMARK(BM_apply_procamp_422_memcpy)->Unit(benchmark::kMillisecond);

// The whole search: a reference made from the picture by a luma gain of 1.15
// and chroma offsets, which settles in a few passes.
void BM_color_matching_422(benchmark::State &state) {
  frame_memory const picture(true);
  frame_memory const reference(true, [](int c, int v) {
    return c % 2 ? int(std::lround(1.15 * v + 6)) : c == 0 ? v + 5 : v - 4;
  });
  for (auto _ : state) {
    color_matching const m(picture.bitmap(), reference.bitmap(), false);
    benchmark::DoNotOptimize(m.contrast());
  }
  state.SetBytesProcessed(std::int64_t(state.iterations()) * std::int64_t(frame_bytes));
}
BENCHMARK(BM_color_matching_422)->Unit(benchmark::kMillisecond);

#ifdef SIGHT_HAVE_OPENCV

cv::Mat as_mat(frame_memory const &m) { return cv::Mat(frame_lines, frame_width / 2, CV_8UC4, m.data(), line_bytes); }

void BM_image_statistics_422_opencv(benchmark::State &state) {
  cv::setNumThreads(1);
  frame_memory const frame(true);
  cv::Mat const picture = as_mat(frame);
  for (auto _ : state) {
    cv::Scalar mean, deviation;
    cv::meanStdDev(picture, mean, deviation);
    benchmark::DoNotOptimize(deviation[3]);
  }
  state.SetBytesProcessed(std::int64_t(state.iterations()) * std::int64_t(frame_bytes));
}
BENCHMARK(BM_image_statistics_422_opencv)->Unit(benchmark::kMillisecond);

// The correction as one 256-entry table per byte of a macro-pixel, built from
// the settings each time (the library builds its tables at each call too).
void BM_apply_procamp_422_opencv_lut(benchmark::State &state) {
  cv::setNumThreads(1);
  frame_memory const source(true), destination(true);
  cv::Mat const from = as_mat(source);
  cv::Mat to = as_mat(destination);
  cv::Mat table(1, 256, CV_8UC4);
  for (auto _ : state) {
    procamp_model::settings const &s = correction;
    for (int i = 0; i < 256; ++i) {
      float const v = float(i) / 255.0f;
      auto byte = [](float x) { return cv::saturate_cast<std::uint8_t>(std::floor(x * 255.0f)); };
      std::uint8_t const y = byte(s.contrast * (v + s.brightness));
      table.at<cv::Vec4b>(i) = {byte(s.saturation * (v + s.u_offset - 0.5f) + 0.5f), y,
                                byte(s.saturation * (v + s.v_offset - 0.5f) + 0.5f), y};
    }
    cv::LUT(from, table, to);
    benchmark::DoNotOptimize(destination.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(std::int64_t(state.iterations()) * std::int64_t(frame_bytes));
}
BENCHMARK(BM_apply_procamp_422_opencv_lut)->Unit(benchmark::kMillisecond);

#endif  // SIGHT_HAVE_OPENCV

}  // namespace
