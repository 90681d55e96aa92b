// The tracker's moment kernels per layout, with and without preview, aligned
// and unaligned, beside: a plain SSE read pass over the same bytes (the
// floor), the scalar model, the same job done with OpenCV (on one thread and
// with its own threads), and the whole tracker call. The per-pixel cases run
// at 1920 by 1080 and 3840 by 2160 (argument w, height 9/16 of it); the
// model, the stride and speckle cases and the fill stages at 1920 by 1080
// only. Every iteration works on the same frame.
#include <sight/object_tracking/moments_kernels.h>
#include <sight/object_tracking/object_tracking.h>

#include "object_tracking/moments_model.h"
#include "object_tracking/tracker_access.h"
#include "support/harness.h"

#include <benchmark/benchmark.h>
#include <emmintrin.h>

#include <cstdint>
#include <cstring>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

#ifdef SIGHT_HAVE_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace {

namespace R = Tamarind::Rasters;
namespace D = Korvane::Sight::detail;
namespace mm = moments_model;
using Korvane::Sight::object_tracking;

enum layout { bgra, ycbcra, s422, y_cbcr, planar };
std::vector<std::int64_t> const widths = {1920, 3840};  // the argument w of the per-pixel cases
constexpr int hd_width = 1920;                          // the cases at one size only

// The default key, and a frame of that layout (the tests' frames; W by W *
// 9 / 16, aligned, or four bytes off; `pad` bytes added to every line): a
// keyed disc in the middle (a quarter of the picture) on a backdrop far from
// the key, both with noise, so that most cells are empty as in a real scene.
// With `speckle`, one sample in seven (a pixel, or a pair in 4:2:2) anywhere
// in the frame is of the key colour instead, which leaves no cell empty.
mm::key const key = mm::make_key(0.78431374f, 0.5372549f, 0.46666667f, 0.7f, 0.3f);
harness::layout const layouts[] = {harness::layout::bgra, harness::layout::ycbcra, harness::layout::ycbcr_422,
                                   harness::layout::y_cbcr, harness::layout::y_cb_cr};

struct frame : harness::frame {
  layout l;
  int cells_x, cells_y;

  frame(layout l_, int W, bool aligned, int pad, bool speckle)
      : harness::frame(layouts[l_], {W, W * 9 / 16, pad, aligned ? 0 : 4, false}), l(l_) {
    int const H = g.height;
    bool const wide = l != bgra && l != ycbcra, tall = l == y_cbcr || l == planar;
    cells_x = W / (wide ? 16 : 8);
    cells_y = H / (tall ? 16 : 8);
    std::mt19937 rng(7);
    randomize(rng);
    int const sw = wide ? W / 2 : W, sh = tall ? H / 2 : H;
    paint([&](int x, int y) {
      float const dx = float(x / (W / sw)) / sw - 0.5f, dy = float(y / (H / sh)) / sh - 0.5f;
      bool const keyed = speckle ? (y * sw + x / (W / sw)) % 7 == 0 : dx * dx + dy * dy < 0.08f;
      int const n = int(rng() % 41) - 20;
      // (119, 137, 200) is the key colour as BGRA; blue is far from it.
      return harness::sample{std::uint8_t((keyed ? 119 : 230) + n / 2), std::uint8_t((keyed ? 137 : 60) + n / 2),
                             std::uint8_t((keyed ? 200 : 30) + n / 2), std::uint8_t(rng()), std::uint8_t(rng()),
                             std::uint8_t((keyed ? key.cb : 220) + n), std::uint8_t((keyed ? key.cr : 40) - n)};
    });
  }
  std::uint8_t *at(int n, int x, int y) const { return planes[std::size_t(n)].line(y) + x; }
  int stride(int n) const { return planes[std::size_t(n)].shape().stride; }
  // Plane n at its own size (the chroma planes at half width and height).
  template <class T>
  R::bitmap<T> view(int n = 0) const {
    return harness::frame::view<R::bitmap<T>>(n);
  }
  R::bitmap_422<R::pixel_ycbcr_u8> view_422() const {
    return harness::frame::view<R::bitmap_422<R::pixel_ycbcr_u8>>();
  }
  // Bytes the kernels read without preview: the chroma of whole cells.
  std::int64_t chroma_bytes() const {
    return std::int64_t(cells_x) * (l == y_cbcr || l == planar ? 16 : 32) * cells_y * 8;
  }
};

// Painting a frame takes longer than many runs of a case, so each kind of
// frame is made once, on first use (before the clock runs), and kept for the
// program's life. Preview paints the key matte into the frame: a case with
// preview works on a copy of the kept frame, fresh for each run.
struct kind {
  layout l;
  int w;
  bool aligned;
  int pad = 0;
  bool speckle = false;
  auto operator<=>(kind const &) const = default;
};

frame const &kept(kind const &k) {
  static std::map<kind, frame> frames;
  return frames.try_emplace(k, k.l, k.w, k.aligned, k.pad, k.speckle).first->second;
}

struct grid {
  std::vector<float> mem;
  int stride;
  alignas(16) std::uint16_t cbcr[8], scale[8], offset[8];
  explicit grid(frame const &f) : stride((f.cells_x + 2) * 32) {
    mem.resize(std::size_t(stride / 4) * (f.cells_y + 2) + 4, 0.f);
    mm::key_lanes(key, cbcr, scale, offset);
  }
  D::moment_grid moment_grid(frame const &f) {
    return {mem.data(), stride, f.cells_x, f.cells_y, cbcr, scale, offset};
  }
};

// `W`: the frame's width; `pad`: bytes added to every line; `speckle`: the
// frame of one keyed sample in seven.
template <layout L>
void BM_generate_moments(benchmark::State &state, int W, int pad = 0, bool speckle = false) {
  bool const preview = state.range(0) != 0, aligned = state.range(1) != 0;
  kind const k{L, W, aligned, pad, speckle};
  std::optional<frame> copy;
  frame const &f = preview ? copy.emplace(kept(k)) : kept(k);
  grid g(f);
  D::moment_grid const mg = g.moment_grid(f);
  auto pick = [&](auto k00, auto k01, auto k10, auto k11, auto const &...b) {
    (aligned ? (preview ? k11 : k10) : (preview ? k01 : k00))(b..., mg);
  };
  for (auto _ : state) {
    switch (L) {
      case bgra:
        pick(D::generate_moments_bgra<false, false>, D::generate_moments_bgra<false, true>,
             D::generate_moments_bgra<true, false>, D::generate_moments_bgra<true, true>,
             f.view<R::pixel_bgra_u8>());
        break;
      case ycbcra:
        pick(D::generate_moments_ycbcra<false, false>, D::generate_moments_ycbcra<false, true>,
             D::generate_moments_ycbcra<true, false>, D::generate_moments_ycbcra<true, true>,
             f.view<R::pixel_ycbcra_u8>());
        break;
      case s422:
        pick(D::generate_moments_422<false, false>, D::generate_moments_422<false, true>,
             D::generate_moments_422<true, false>, D::generate_moments_422<true, true>, f.view_422());
        break;
      case y_cbcr:
        pick(D::generate_moments_y_cbcr<false, false>, D::generate_moments_y_cbcr<false, true>,
             D::generate_moments_y_cbcr<true, false>, D::generate_moments_y_cbcr<true, true>,
             f.view<R::pixel_y_u8>(), f.view<R::pixel_cbcr_u8>(1));
        break;
      case planar:
        if (!preview)
          D::generate_moments_planar(f.view<R::pixel_cb_u8>(1), f.view<R::pixel_cr_u8>(2), mg);
        else if (aligned)
          D::generate_moments_planar_preview<true>(f.view<R::pixel_y_u8>(), f.view<R::pixel_cb_u8>(1),
                                                   f.view<R::pixel_cr_u8>(2), mg);
        else
          D::generate_moments_planar_preview<false>(f.view<R::pixel_y_u8>(), f.view<R::pixel_cb_u8>(1),
                                                    f.view<R::pixel_cr_u8>(2), mg);
        break;
    }
    benchmark::DoNotOptimize(g.mem.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(std::int64_t(state.iterations()) * f.chroma_bytes());
}

// The floor: every byte the kernel reads without preview, loaded once in
// 16-byte vectors and folded so that the loads cannot be dropped. Four
// independent sums, so that the adds do not hold the loads back.
template <layout L>
void BM_read_pass(benchmark::State &state, int W, int pad = 0) {
  frame const &f = kept({L, W, state.range(0) != 0, pad});
  for (auto _ : state) {
    __m128i acc[4] = {};
    for (std::size_t n = (L == y_cbcr || L == planar) ? 1 : 0; n < f.planes.size(); ++n) {
      int const bytes = L == planar ? f.cells_x * 8 : L == y_cbcr ? f.cells_x * 16 : f.cells_x * 32;
      int const lines = f.cells_y * 8;
      for (int y = 0; y < lines; ++y) {
        auto const *p = reinterpret_cast<__m128i const *>(f.at(int(n), 0, y));
        int x = 0;
        for (; x + 4 <= bytes / 16; x += 4)
          for (int k = 0; k < 4; ++k) acc[k] = _mm_add_epi8(acc[k], _mm_loadu_si128(p + x + k));
        for (; x < bytes / 16; ++x) acc[0] = _mm_add_epi8(acc[0], _mm_loadu_si128(p + x));
      }
    }
    benchmark::DoNotOptimize(acc);
  }
  state.SetBytesProcessed(std::int64_t(state.iterations()) * f.chroma_bytes());
}

// The scalar model of the tests, without preview.
template <layout L>
void BM_model(benchmark::State &state) {
  frame const &f = kept({L, hd_width, true});
  int const W = f.g.width, H = f.g.height;
  grid g(f);
  for (auto _ : state) {
    float *c = g.mem.data();
    switch (L) {
      case bgra: mm::moments_bgra(f.at(0, 0, 0), f.stride(0), W, H, key, false, c, g.stride); break;
      case ycbcra: mm::moments_ycbcra(f.at(0, 0, 0), f.stride(0), W, H, key, false, c, g.stride); break;
      case s422: mm::moments_422(f.at(0, 0, 0), f.stride(0), W, H, key, false, c, g.stride); break;
      case y_cbcr:
        mm::moments_y_cbcr(f.at(0, 0, 0), f.stride(0), f.at(1, 0, 0), f.stride(1), W, H, key, false, c, g.stride);
        break;
      case planar:
        mm::moments_planar(f.at(0, 0, 0), f.stride(0), f.at(1, 0, 0), f.stride(1), f.at(2, 0, 0), f.stride(2), W,
                           H, key, false, c, g.stride);
        break;
    }
    benchmark::DoNotOptimize(c);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(std::int64_t(state.iterations()) * f.chroma_bytes());
}

// The whole tracker call: set-up, moments, extraction and fit.
template <layout L>
void BM_object_tracking(benchmark::State &state, int W, int pad = 0, bool speckle = false) {
  bool const preview = state.range(0) != 0;
  kind const k{L, W, state.range(1) != 0, pad, speckle};
  std::optional<frame> copy;
  frame const &f = preview ? copy.emplace(kept(k)) : kept(k);
  object_tracking t;
  t.enabled() = true;
  t.preview() = preview ? object_tracking::preview_key : object_tracking::preview_none;
  Korvane::Sight::object_tracking_info info{};
  for (auto _ : state) {
    switch (L) {
      case bgra: t(info, f.view<R::pixel_bgra_u8>(), 0.f); break;
      case ycbcra: t(info, f.view<R::pixel_ycbcra_u8>(), 0.f); break;
      case s422: t(info, f.view_422(), 0.f); break;
      case y_cbcr: t(info, f.view<R::pixel_y_u8>(), f.view<R::pixel_cbcr_u8>(1), 0.f); break;
      case planar: t(info, f.view<R::pixel_y_u8>(), f.view<R::pixel_cb_u8>(1), f.view<R::pixel_cr_u8>(2), 0.f); break;
    }
    benchmark::DoNotOptimize(info);
  }
  state.SetBytesProcessed(std::int64_t(state.iterations()) * f.chroma_bytes());
}

#ifdef SIGHT_HAVE_OPENCV
// The same job the usual OpenCV way, on one thread: chroma of every sample,
// a soft key from the city-block chroma distance, 8 by 8 cell sums by an
// area resize, labelling of the non-empty cells and the moments of the
// largest region. With own_threads, OpenCV runs with its default threads.
template <layout L>
void BM_opencv(benchmark::State &state, int W, bool speckle = false, bool own_threads = false) {
  cv::setNumThreads(own_threads ? -1 : 1);
  frame const &f = kept({L, W, true, 0, speckle});
  int const H = f.g.height;
  int const sw = L == bgra || L == ycbcra ? W : W / 2, sh = L == y_cbcr || L == planar ? H / 2 : H;
  auto mat = [&](int n, int type, int cols, int rows) {
    return cv::Mat(rows, cols, type, f.at(n, 0, 0), std::size_t(f.stride(n)));
  };
  cv::Mat cbcr, diff, d, w, cells, mask, labels, stats, centroids, winner;
  float const s = float(key.scale) / 256.f;
  cv::Rect const whole(0, 0, f.cells_x * 8, f.cells_y * 8);
  for (auto _ : state) {
    switch (L) {
      case bgra: {
        cv::Matx<float, 2, 5> const m(112 / 256.f, -64 / 256.f, -38 / 256.f, 0, 128.f,  //
                                      -18 / 256.f, -94 / 256.f, 112 / 256.f, 0, 128.f);
        cv::transform(mat(0, CV_8UC4, sw, sh), cbcr, m);
        break;
      }
      case ycbcra:
      case s422: {
        cv::Mat const src = mat(0, CV_8UC4, sw, sh);
        cbcr.create(sh, sw, CV_8UC2);
        int const from_to[] = {L == s422 ? 0 : 1, 0, L == s422 ? 2 : 2, 1};
        cv::mixChannels(&src, 1, &cbcr, 1, from_to, 2);
        break;
      }
      case y_cbcr: cbcr = mat(1, CV_8UC2, sw, sh); break;
      case planar: cv::merge(std::vector<cv::Mat>{mat(1, CV_8UC1, sw, sh), mat(2, CV_8UC1, sw, sh)}, cbcr); break;
    }
    cv::absdiff(cbcr, cv::Scalar(key.cb, key.cr), diff);
    cv::transform(diff, d, cv::Matx12f(1.f, 1.f));  // saturates at 255, as the key does
    d.convertTo(w, CV_8U, -s, key.offset);
    cv::resize(w(whole), cells, cv::Size(f.cells_x, f.cells_y), 0, 0, cv::INTER_AREA);
    mask = cells > 0;
    int const n = cv::connectedComponentsWithStats(mask, labels, stats, centroids, 4, CV_32S);
    int best = 0;
    for (int i = 1; i < n; ++i)
      if (best == 0 || stats.at<int>(i, cv::CC_STAT_AREA) > stats.at<int>(best, cv::CC_STAT_AREA)) best = i;
    winner = cv::Mat::zeros(cells.size(), cells.type());
    cells.copyTo(winner, labels == best);
    cv::Moments const mo = cv::moments(winner);
    benchmark::DoNotOptimize(mo);
  }
  state.SetBytesProcessed(std::int64_t(state.iterations()) * f.chroma_bytes());
}
#endif

#ifdef SIGHT_HAVE_OPENCV
#define SIGHT_BENCH_OPENCV(name, L)                                                                              \
  void BM_opencv_##name(benchmark::State &s) { BM_opencv<L>(s, int(s.range(1)), false, s.range(0) == 0); }       \
  BENCHMARK(BM_opencv_##name)                                                                                    \
      ->ArgNames({"threads", "w"})                                                                               \
      ->ArgsProduct({{1, 0}, widths})                                                                            \
      ->Unit(benchmark::kMillisecond);
#else
#define SIGHT_BENCH_OPENCV(name, L)
#endif

#define SIGHT_BENCH_LAYOUT(name, L)                                                                              \
  void BM_generate_moments_##name(benchmark::State &s) { BM_generate_moments<L>(s, int(s.range(2))); }           \
  void BM_read_pass_##name(benchmark::State &s) { BM_read_pass<L>(s, int(s.range(1))); }                         \
  void BM_model_##name(benchmark::State &s) { BM_model<L>(s); }                                                  \
  void BM_object_tracking_##name(benchmark::State &s) { BM_object_tracking<L>(s, int(s.range(2))); }             \
  BENCHMARK(BM_generate_moments_##name)                                                                          \
      ->ArgNames({"preview", "aligned", "w"})                                                                    \
      ->ArgsProduct({{0, 1}, {0, 1}, widths})                                                                    \
      ->Unit(benchmark::kMillisecond);                                                                           \
  BENCHMARK(BM_read_pass_##name)                                                                                 \
      ->ArgNames({"aligned", "w"})                                                                               \
      ->ArgsProduct({{1, 0}, widths})                                                                            \
      ->Unit(benchmark::kMillisecond);                                                                           \
  BENCHMARK(BM_model_##name)->Unit(benchmark::kMillisecond);                                                     \
  BENCHMARK(BM_object_tracking_##name)                                                                           \
      ->ArgNames({"preview", "aligned", "w"})                                                                    \
      ->ArgsProduct({{0, 1}, {0, 1}, widths})                                                                    \
      ->Unit(benchmark::kMillisecond);                                                                           \
  SIGHT_BENCH_OPENCV(name, L)

SIGHT_BENCH_LAYOUT(bgra, bgra)
SIGHT_BENCH_LAYOUT(ycbcra, ycbcra)
SIGHT_BENCH_LAYOUT(422, s422)
SIGHT_BENCH_LAYOUT(y_cbcr, y_cbcr)
SIGHT_BENCH_LAYOUT(planar, planar)

// Line strides of 1920 * 4, 1920 * 4 + 64 and 2048 * 4 bytes, both members,
// and the frames of one keyed sample in seven (no cell empty).
void register_more() {
  for (int pad : {0, 64, 512}) {
    std::string const n = "/pad:" + std::to_string(pad);
    for (int a : {0, 1}) {
      benchmark::RegisterBenchmark(("BM_stride_moments_bgra" + n).c_str(),
                                   [pad](benchmark::State &s) { BM_generate_moments<bgra>(s, hd_width, pad); })
          ->ArgNames({"preview", "aligned"})->Args({0, a})->Unit(benchmark::kMillisecond);
      benchmark::RegisterBenchmark(("BM_stride_read_pass_bgra" + n).c_str(),
                                   [pad](benchmark::State &s) { BM_read_pass<bgra>(s, hd_width, pad); })
          ->ArgName("aligned")->Arg(a)->Unit(benchmark::kMillisecond);
      benchmark::RegisterBenchmark(("BM_stride_object_tracking_bgra" + n).c_str(),
                                   [pad](benchmark::State &s) { BM_object_tracking<bgra>(s, hd_width, pad); })
          ->ArgNames({"preview", "aligned"})->Args({0, a})->Unit(benchmark::kMillisecond);
    }
  }
  for (int a : {0, 1}) {
    benchmark::RegisterBenchmark("BM_speckle_moments_422",
                                 [](benchmark::State &s) { BM_generate_moments<s422>(s, hd_width, 0, true); })
        ->ArgNames({"preview", "aligned"})->Args({0, a})->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("BM_speckle_object_tracking_422",
                                 [](benchmark::State &s) { BM_object_tracking<s422>(s, hd_width, 0, true); })
        ->ArgNames({"preview", "aligned"})->Args({0, a})->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("BM_speckle_object_tracking_bgra",
                                 [](benchmark::State &s) { BM_object_tracking<bgra>(s, hd_width, 0, true); })
        ->ArgNames({"preview", "aligned"})->Args({0, a})->Unit(benchmark::kMillisecond);
  }
#ifdef SIGHT_HAVE_OPENCV
  benchmark::RegisterBenchmark("BM_speckle_opencv_422",
                               [](benchmark::State &s) { BM_opencv<s422>(s, hd_width, true); })
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("BM_speckle_opencv_bgra",
                               [](benchmark::State &s) { BM_opencv<bgra>(s, hd_width, true); })
      ->Unit(benchmark::kMillisecond);
#endif
}
int const registered = (register_more(), 0);

}  // namespace

// The tracker's stages after the moment pass, on a grid of 1080p BGRA cells
// (240 by 135): the region fill and choice of the winner, and the fit.
// Patterns: a solid object over a quarter of the grid, random speckle (many
// small regions), and a one-cell-wide serpentine (one region, deepest fill).
namespace fill_stages {

using Korvane::Sight::object_tracking;
using Korvane::Sight::object_tracking_info;
using access = Korvane::Sight::object_tracking_test_access;

constexpr int kCellsX = 240, kCellsY = 135;

bool keyed(int pattern, int i, int j, std::mt19937 &rng) {
  switch (pattern) {
    case 0:
      return i > 60 && i < 180 && j > 34 && j < 100;
    case 1:
      return std::bernoulli_distribution(0.4)(rng);
    default:
      return i % 2 == 0 || j == ((i / 2) % 2 == 0 ? kCellsY - 1 : 0);
  }
}

// The grid of a frame: full-weight cells where the pattern is keyed.
void fill_grid(object_tracking &t, int pattern) {
  std::mt19937 rng(1);
  for (int j = 0; j < kCellsY; ++j)
    for (int i = 0; i < kCellsX; ++i) {
      float const m = keyed(pattern, i, j, rng) ? 64 * 255.0f : 0.0f, x = i * 8 + 3.5f, y = j * 8 + 3.5f;
      access::cell(t, i + 1, j + 1) = {m * x, m * y, m, 0, m * x * x + m * 5.25f, m * y * y + m * 5.25f, m * x * y, 0};
    }
}

void BM_extract_object(benchmark::State &state) {
  object_tracking t;
  access::setup(t, kCellsX * 8, kCellsY * 8, kCellsX, kCellsY);
  int const pattern = int(state.range(0));
  for (auto _ : state) {
    state.PauseTiming();
    fill_grid(t, pattern);  // the fill empties the grid
    state.ResumeTiming();
    object_tracking::moments_type best{};
    access::extract_object(t, best);
    access::scale_object(t, best, kCellsX * 8, kCellsY * 8, 16.0f / 9.0f);
    object_tracking_info info;
    access::fit_object(t, info, best);
    benchmark::DoNotOptimize(info);
  }
  state.SetItemsProcessed(std::int64_t(state.iterations()) * kCellsX * kCellsY);
}
BENCHMARK(BM_extract_object)->ArgNames({"pattern"})->Arg(0)->Arg(1)->Arg(2)->Unit(benchmark::kMicrosecond);

}  // namespace fill_stages
