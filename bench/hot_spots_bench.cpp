// Hot spots in each layout at 1920 x 1080 and 3840 x 2160 (argument w,
// height 9/16 of it), the same frame every iteration:
//   BM_hot_spots_<layout>          the eight default spots through operator();
//   BM_read_spots_<layout>         a plain read of the bytes of their rectangles;
//   BM_opencv_spots_<layout>       the same eight rectangles the OpenCV way:
//                                  chroma (conversion for BGRA), squared
//                                  distance, compare, cv::countNonZero;
//   BM_hot_spots_whole_<layout>    eight spots enlarged to the whole frame;
//   BM_read_pass_<layout>          a plain read of the same bytes, eight times;
//   BM_model_whole_<layout>        the scalar model on the eight whole frames
//                                  (1920 x 1080 only).
#include <benchmark/benchmark.h>

#include <emmintrin.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <sight/frame/bitmap.h>
#include <sight/hot_spots/extract_kernels.h>
#include <sight/hot_spots/hot_spots.h>

#include "hot_spots/extract_model.h"
#include "support/harness.h"

#ifdef SIGHT_HAVE_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace {

namespace R = Tamarind::Rasters;
namespace S = Korvane::Sight;
namespace hm = hot_spots_model;

std::vector<std::int64_t> const kWidths = {1920, 3840};  // the argument w
constexpr float kAspect = 16.0f / 9.0f;

enum layout { bgra, ycbcra, ycbcr422, y_cbcr, planar };

// One picture in every layout (the tests' frames, aligned, w by w * 9 / 16):
// the default key with noise, a quarter of the pixels something else.
struct frames {
  harness::geometry const picture;
  harness::frame const all[5] = {{harness::layout::bgra, picture},      {harness::layout::ycbcra, picture},
                                 {harness::layout::ycbcr_422, picture}, {harness::layout::y_cbcr, picture},
                                 {harness::layout::y_cb_cr, picture}};
  S::bgra_bitmap bgra = all[0].view<S::bgra_bitmap>();
  S::ycbcra_bitmap ycbcra = all[1].view<S::ycbcra_bitmap>();
  S::ycbcr_bitmap ycbcr = all[2].view<S::ycbcr_bitmap>();
  S::y_bitmap y = all[3].view<S::y_bitmap>();
  S::cbcr_bitmap cbcr = all[3].view<S::cbcr_bitmap>(1);
  S::cb_bitmap cb = all[4].view<S::cb_bitmap>(1);
  S::cr_bitmap cr = all[4].view<S::cr_bitmap>(2);

  explicit frames(int w) : picture{w, w * 9 / 16, 0, 0, false} {
    std::mt19937 rng(1);
    std::uniform_int_distribution<int> noise(-20, 20), other(0, 3), byte(0, 255);
    auto const level = [&](int key) {
      return std::uint8_t(other(rng) == 0 ? byte(rng) : std::clamp(key + noise(rng), 0, 255));
    };
    auto const pixel = [&](int, int) {
      return harness::sample{level(160), level(90), level(50), 255, std::uint8_t(byte(rng)), level(165), level(105)};
    };
    for (harness::frame const &f : all) f.paint(pixel);
  }
};

// The pictures of one width, made on first use and kept for the program's
// life (painting them takes longer than many runs of a case).
frames const &the_frames(int w) {
  static std::map<int, frames> kept;
  return kept.try_emplace(w, w).first->second;
}

// Chroma-bearing bytes of one frame in a layout.
std::int64_t frame_bytes(layout l, int w) {
  std::int64_t const h = w * 9 / 16;
  switch (l) {
    case bgra:
    case ycbcra: return w * h * 4;
    case ycbcr422: return w * h * 2;
    case y_cbcr:
    case planar: return (w / 2) * (h / 2) * 2;
  }
  return 0;
}

// Eight spots on; `whole` centres them all and makes them cover the frame.
S::hot_spots make_spots(bool whole) {
  S::hot_spots op;
  op.enabled() = true;
  for (int i = 0; i < op.size_spots(); ++i) {
    op.spots(i).enabled() = true;
    if (whole) op.spots(i).x() = 0, op.spots(i).y() = 0, op.spots(i).size() = 10.0f;
  }
  return op;
}

S::hot_spots_info run(S::hot_spots &op, frames const &f, layout l) {
  switch (l) {
    case bgra: return op(f.bgra, kAspect);
    case ycbcra: return op(f.ycbcra, kAspect);
    case ycbcr422: return op(f.ycbcr, kAspect);
    case y_cbcr: return op(f.y, f.cbcr, kAspect);
    case planar: return op(f.y, f.cb, f.cr, kAspect);
  }
  return {};
}

void bm_hot_spots(benchmark::State &state, layout l, bool whole) {
  int const w = int(state.range(0));
  frames const &f = the_frames(w);
  S::hot_spots op = make_spots(whole);
  for (auto _ : state) {
    S::hot_spots_info info = run(op, f, l);
    benchmark::DoNotOptimize(info);
  }
  state.SetBytesProcessed(std::int64_t(state.iterations()) * frame_bytes(l, w) * (whole ? 8 : 1));
}

// The plain read: 16-byte loads over every line's chroma-bearing bytes,
// folded into one vector so that none is dropped.
template <class B>
__m128i read_lines(B const &b, std::int64_t bytes, __m128i acc) {
  for (int j = 0; j < b.height; ++j) {
    auto const *p = reinterpret_cast<__m128i const *>(R::line(b, j));
    for (std::int64_t i = 0; i < bytes / 16; ++i) acc = _mm_add_epi32(acc, _mm_load_si128(p + i));
  }
  return acc;
}

void bm_read_pass(benchmark::State &state, layout l) {
  int const w = int(state.range(0));
  frames const &f = the_frames(w);
  for (auto _ : state) {
    __m128i acc = _mm_setzero_si128();
    for (int pass = 0; pass < 8; ++pass) {
      switch (l) {
        case bgra: acc = read_lines(f.bgra, R::line_bytes(f.bgra), acc); break;
        case ycbcra: acc = read_lines(f.ycbcra, R::line_bytes(f.ycbcra), acc); break;
        case ycbcr422: acc = read_lines(f.ycbcr, R::line_bytes(f.ycbcr), acc); break;
        case y_cbcr: acc = read_lines(f.cbcr, R::line_bytes(f.cbcr), acc); break;
        case planar:
          acc = read_lines(f.cb, R::line_bytes(f.cb), acc);
          acc = read_lines(f.cr, R::line_bytes(f.cr), acc);
          break;
      }
    }
    benchmark::DoNotOptimize(acc);
  }
  state.SetBytesProcessed(std::int64_t(state.iterations()) * frame_bytes(l, w) * 8);
}

// The bytes of the eight default spots' rectangles, clipped as the kernels
// clip them: whole pixels for BGRA and YCbCrA, the pairs between the even
// edges for 4:2:2, and the edges halved on the chroma planes. One span is
// lines top to bottom - 1, bytes from to to - 1 of each, of one plane.
struct span {
  std::uint8_t const *data;
  int stride, top, bottom, from, to;
};

std::vector<span> spot_spans(frames const &f, layout l) {
  int const w = f.picture.width, h = f.picture.height;
  S::hot_spots op = make_spots(false);
  S::detail::spot_rect rects[8];
  S::detail::spot_rectangles(op, w, h, kAspect, rects);
  std::vector<span> spans;
  for (auto const &r : rects) {
    int const x0 = std::clamp(r.left_top.x, 0, w), x1 = std::clamp(r.right_bottom.x, 0, w);
    int const y0 = std::clamp(r.left_top.y, 0, h), y1 = std::clamp(r.right_bottom.y, 0, h);
    auto const add = [&](auto const &b, int from, int to, int top, int bottom) {
      spans.push_back({reinterpret_cast<std::uint8_t const *>(b.data), b.stride, top, bottom, from, to});
    };
    switch (l) {
      case bgra: add(f.bgra, x0 * 4, x1 * 4, y0, y1); break;
      case ycbcra: add(f.ycbcra, x0 * 4, x1 * 4, y0, y1); break;
      case ycbcr422: add(f.ycbcr, (x0 + 1) / 2 * 4, x1 / 2 * 4, y0, y1); break;
      case y_cbcr: add(f.cbcr, x0 / 2 * 2, x1 / 2 * 2, y0 / 2, y1 / 2); break;
      case planar:
        add(f.cb, x0 / 2, x1 / 2, y0 / 2, y1 / 2);
        add(f.cr, x0 / 2, x1 / 2, y0 / 2, y1 / 2);
        break;
    }
  }
  return spans;
}

// The floor of the default spots: 16-byte loads over every span, folded
// into one vector so that none is dropped. A span that is not a whole number
// of vectors ends with one load of its last 16 bytes (the lines are longer
// than that, so it stays on the line). Bytes are counted as the default-spot
// case counts them, so that the two rates compare.
void bm_read_spots(benchmark::State &state, layout l) {
  int const w = int(state.range(0));
  std::vector<span> const spans = spot_spans(the_frames(w), l);
  for (auto _ : state) {
    __m128i acc = _mm_setzero_si128();
    for (span const &s : spans)
      for (int y = s.top; y < s.bottom; ++y) {
        std::uint8_t const *p = s.data + std::ptrdiff_t(y) * s.stride;
        int x = s.from;
        for (; x + 16 <= s.to; x += 16)
          acc = _mm_add_epi32(acc, _mm_loadu_si128(reinterpret_cast<__m128i const *>(p + x)));
        if (x < s.to)
          acc = _mm_add_epi32(acc, _mm_loadu_si128(reinterpret_cast<__m128i const *>(p + std::max(s.to - 16, 0))));
      }
    benchmark::DoNotOptimize(acc);
  }
  state.SetBytesProcessed(std::int64_t(state.iterations()) * frame_bytes(l, w));
}

// The scalar model over the eight whole-frame rectangles.
void bm_model_whole(benchmark::State &state, layout l) {
  frames const &f = the_frames(1920);
  int const width = f.picture.width, height = f.picture.height;
  S::hot_spots op = make_spots(true);
  S::detail::hot_spots_kernels::setup(op);
  hm::key const k = hm::make_key(op.color().r(), op.color().g(), op.color().b(), op.tolerance_c(),
                                 op.smoothness(), op.threshold());
  S::detail::spot_rect rects[8];
  S::detail::spot_rectangles(op, width, height, kAspect, rects);
  auto const plane = [](auto const &b, int line) {
    return hm::make_plane(reinterpret_cast<std::uint8_t const *>(b.data), b.stride, b.width, b.height,
                          line);
  };
  for (auto _ : state) {
    int total = 0;
    for (auto const &r : rects) {
      hm::rect const rr{r.left_top.x, r.left_top.y, r.right_bottom.x, r.right_bottom.y};
      switch (l) {
        case bgra: total += hm::extract_bgra(plane(f.bgra, width * 4), rr, k).count; break;
        case ycbcra: total += hm::extract_ycbcra(plane(f.ycbcra, width * 4), rr, k).count; break;
        case ycbcr422: total += hm::extract_422(plane(f.ycbcr, width * 2), rr, k).count; break;
        case y_cbcr: total += hm::extract_cbcr(plane(f.cbcr, width), rr, k).count; break;
        case planar:
          total += hm::extract_cb_cr(plane(f.cb, width / 2), plane(f.cr, width / 2), rr, k).count;
          break;
      }
    }
    benchmark::DoNotOptimize(total);
  }
  state.SetBytesProcessed(std::int64_t(state.iterations()) * frame_bytes(l, width) * 8);
}

#ifdef SIGHT_HAVE_OPENCV
// Squared chroma distance of every element of `m` to the key through a
// per-channel weight row, compared with the squared radius and counted.
int count_opencv(cv::Mat const &m, cv::Scalar const &key, cv::Mat const &weights, float radius2) {
  cv::Mat diff, wide, dist, mask;
  cv::absdiff(m, key, diff);
  diff.convertTo(wide, CV_32F);
  wide = wide.mul(wide);
  cv::transform(wide, dist, weights);
  cv::compare(dist, radius2, mask, cv::CMP_GT);
  return cv::countNonZero(mask);
}

// threads = 1 runs OpenCV on one thread, threads = 0 with its own default.
void bm_opencv_spots(benchmark::State &state, layout l) {
  cv::setNumThreads(state.range(0) != 0 ? 1 : -1);
  frames const &f = the_frames(int(state.range(1)));
  int const width = f.picture.width, height = f.picture.height;
  S::hot_spots op = make_spots(false);
  S::detail::hot_spots_kernels::setup(op);
  hm::key const k = hm::make_key(op.color().r(), op.color().g(), op.color().b(), op.tolerance_c(),
                                 op.smoothness(), op.threshold());
  float const radius2 = float(k.radius2);
  S::detail::spot_rect rects[8];
  S::detail::spot_rectangles(op, width, height, kAspect, rects);
  auto const mat = [](auto const &b, int type, int cols, int rows) {
    return cv::Mat(rows, cols, type, const_cast<void *>(static_cast<void const *>(b.data)),
                   std::size_t(b.stride));
  };
  cv::Mat const bgra_m = mat(f.bgra, CV_8UC4, width, height);
  cv::Mat const ycbcra_m = mat(f.ycbcra, CV_8UC4, width, height);
  cv::Mat const ycbcr_m = mat(f.ycbcr, CV_8UC4, width / 2, height);
  cv::Mat const cbcr_m = mat(f.cbcr, CV_8UC2, width / 2, height / 2);
  cv::Mat const cb_m = mat(f.cb, CV_8UC1, width / 2, height / 2);
  cv::Mat const cr_m = mat(f.cr, CV_8UC1, width / 2, height / 2);
  for (auto _ : state) {
    int covered = 0;
    for (auto const &r : rects) {
      cv::Rect const px(r.left_top.x, r.left_top.y, r.right_bottom.x - r.left_top.x,
                        r.right_bottom.y - r.left_top.y);
      cv::Rect const half(px.x / 2, px.y / 2, px.width / 2, px.height / 2);
      cv::Rect const pairs(px.x / 2, px.y, px.width / 2, px.height);
      int count = 0;
      switch (l) {
        case bgra: {
          cv::Mat bgr, ycrcb;
          cv::cvtColor(bgra_m(px), bgr, cv::COLOR_BGRA2BGR);
          cv::cvtColor(bgr, ycrcb, cv::COLOR_BGR2YCrCb);
          count = count_opencv(ycrcb, cv::Scalar(0, k.cr, k.cb), cv::Mat(cv::Matx13f(0, 1, 1)), radius2);
          break;
        }
        case ycbcra:
          count = count_opencv(ycbcra_m(px), cv::Scalar(0, k.cb, k.cr, 0),
                               cv::Mat(cv::Matx14f(0, 1, 1, 0)), radius2);
          break;
        case ycbcr422:
          count = count_opencv(ycbcr_m(pairs), cv::Scalar(k.cb, 0, k.cr, 0),
                               cv::Mat(cv::Matx14f(1, 0, 1, 0)), radius2);
          break;
        case y_cbcr:
          count = count_opencv(cbcr_m(half), cv::Scalar(k.cb, k.cr), cv::Mat(cv::Matx12f(1, 1)),
                               radius2);
          break;
        case planar: {
          cv::Mat dcb, dcr, fcb, fcr, dist, mask;
          cv::absdiff(cb_m(half), cv::Scalar(k.cb), dcb);
          cv::absdiff(cr_m(half), cv::Scalar(k.cr), dcr);
          dcb.convertTo(fcb, CV_32F);
          dcr.convertTo(fcr, CV_32F);
          dist = fcb.mul(fcb) + fcr.mul(fcr);
          cv::compare(dist, radius2, mask, cv::CMP_GT);
          count = cv::countNonZero(mask);
          break;
        }
      }
      covered += count >= k.threshold ? 1 : 0;
    }
    benchmark::DoNotOptimize(covered);
  }
  state.SetBytesProcessed(std::int64_t(state.iterations()) * frame_bytes(l, width));
}
#endif

void register_all() {
  struct named {
    layout l;
    char const *name;
  };
  for (named n : {named{bgra, "bgra"}, named{ycbcra, "ycbcra"}, named{ycbcr422, "ycbcr422"},
                  named{y_cbcr, "y_cbcr"}, named{planar, "planar"}}) {
    layout const l = n.l;
    std::string const suffix = n.name;
    auto const add = [&](char const *name, auto bm) {
      return benchmark::RegisterBenchmark((name + suffix).c_str(), [l, bm](benchmark::State &s) { bm(s, l); });
    };
    add("BM_hot_spots_", [](benchmark::State &s, layout l) { bm_hot_spots(s, l, false); })
        ->ArgNames({"w"})
        ->ArgsProduct({kWidths})
        ->Unit(benchmark::kMicrosecond);
    add("BM_read_spots_", bm_read_spots)->ArgNames({"w"})->ArgsProduct({kWidths})->Unit(benchmark::kMicrosecond);
#ifdef SIGHT_HAVE_OPENCV
    add("BM_opencv_spots_", bm_opencv_spots)
        ->ArgNames({"threads", "w"})
        ->ArgsProduct({{1, 0}, kWidths})
        ->Unit(benchmark::kMicrosecond);
#endif
    add("BM_hot_spots_whole_", [](benchmark::State &s, layout l) { bm_hot_spots(s, l, true); })
        ->ArgNames({"w"})
        ->ArgsProduct({kWidths})
        ->Unit(benchmark::kMillisecond);
    add("BM_read_pass_", bm_read_pass)->ArgNames({"w"})->ArgsProduct({kWidths})->Unit(benchmark::kMillisecond);
    add("BM_model_whole_", bm_model_whole)->Unit(benchmark::kMillisecond);
  }
}

int const registered = (register_all(), 0);

}  // namespace
