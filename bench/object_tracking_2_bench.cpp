// The chamfer tracker at 1920 by 1080, on a frame with a key-coloured disc
// (a quarter of the picture) and on one without: the block scan, aligned and
// unaligned, beside a plain read of the same bytes and beside the OpenCV way
// (block mask from the chroma distance, then cv::distanceTransform); the
// whole frame call, which with a region draws and writes the picture; the
// call without the picture; and the picture alone, for its share. The frame stays in cache between runs, and
// the drawn-on frame is restored outside the timing. Run it from a scratch
// folder: the picture lands in the working directory.
#include <sight/frame/convert.h>
#include <sight/frame/io.h>
#include <sight/object_tracking_2/chamfer_kernels.h>
#include <sight/object_tracking_2/object_tracking_2.h>

#include <benchmark/benchmark.h>
#include <emmintrin.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#ifdef SIGHT_HAVE_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

// The call's stages before the picture, reached as the tests reach them.
namespace Korvane::Sight {
struct object_tracking_2_test_access {
  static bool draw_star(object_tracking_2 &t, ycbcr_bitmap const &frame) { return t.draw_star(frame); }
};
}  // namespace Korvane::Sight

namespace {

namespace R = Tamarind::Rasters;
namespace D = Korvane::Sight::detail;
using Korvane::Sight::object_tracking_2;

constexpr int W = 1920, H = 1080, cols = W / 16, rows = H / 8;
constexpr int key_cb = 111, key_cr = 157, key_tolerance = 20;  // the default settings' key

// A 4:2:2 frame, 16 bytes of slack before it so that an unaligned view fits.
struct frame {
  std::vector<std::uint8_t> original;
  std::uint8_t *memory;
  Korvane::Sight::ycbcr_bitmap view;
  frame(bool region, bool aligned)
      : original(std::size_t(W * 2 * H)), memory(static_cast<std::uint8_t *>(R::mem::alloc(W * 2 * H + 16, 16))) {
    std::mt19937 rng(3);
    for (int y = 0; y < H; ++y)
      for (int x = 0; x < W; x += 2) {
        float const dx = float(x) / W - 0.5f, dy = float(y) / H - 0.5f;
        bool const keyed = region && dx * dx + dy * dy < 0.08f;
        int const n = int(rng() % 9) - 4;
        std::uint8_t *p = &original[std::size_t(y * W * 2 + x * 2)];
        p[0] = std::uint8_t((keyed ? key_cb : 200) + n), p[2] = std::uint8_t((keyed ? key_cr : 40) - n);
        p[1] = std::uint8_t(rng()), p[3] = std::uint8_t(rng());
      }
    view = {reinterpret_cast<R::pixel_ycbcr_u8 *>(memory + (aligned ? 0 : 4)), W, H, W * 2, false};
    restore();
  }
  ~frame() { R::mem::free(memory); }
  void restore() { std::memcpy(view.data, original.data(), original.size()); }
};

struct block_map {
  Korvane::Sight::y_bitmap b{};
  block_map() {
    R::allocate(b, cols + 2, rows + 2);
    std::memset(b.data, 0, std::size_t(b.stride * b.height));
  }
  ~block_map() { R::release(b); }
};

void BM_chamfer_pass_1(benchmark::State &state) {
  frame f(state.range(0) != 0, state.range(1) != 0);
  block_map map;
  __m128i const key = _mm_set1_epi32(key_cr << 16 | key_cb);
  for (auto _ : state) {
    if (state.range(1) != 0)
      D::chamfer_pass_1<true>(f.view, key, key_tolerance << 6, map.b);
    else
      D::chamfer_pass_1<false>(f.view, key, key_tolerance << 6, map.b);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(std::int64_t(state.iterations()) * W * 2 * H);
}

// The floor: every byte of the blocks loaded once in 16-byte vectors.
void BM_read_pass(benchmark::State &state) {
  frame f(true, state.range(0) != 0);
  for (auto _ : state) {
    __m128i acc = _mm_setzero_si128();
    for (int y = 0; y < H; ++y) {
      auto const *p = reinterpret_cast<std::uint8_t const *>(R::line(f.view, y));
      for (int x = 0; x < W * 2; x += 16) acc = _mm_add_epi8(acc, _mm_loadu_si128(reinterpret_cast<__m128i const *>(p + x)));
    }
    benchmark::DoNotOptimize(acc);
  }
  state.SetBytesProcessed(std::int64_t(state.iterations()) * W * 2 * H);
}

#ifdef SIGHT_HAVE_OPENCV
// The block mask the OpenCV way (chroma distance per pair, block means by
// area resampling, a threshold, a border of non-matching cells), then the
// chessboard distance transform on it.
void BM_opencv_distance(benchmark::State &state) {
  cv::setNumThreads(1);
  frame f(state.range(0) != 0, true);
  cv::Mat const pairs(H, W / 2, CV_8UC4, f.view.data, std::size_t(f.view.stride));
  cv::Mat diff, cb, cr, sum, means, mask, bordered, distance;
  for (auto _ : state) {
    cv::absdiff(pairs, cv::Scalar(key_cb, 0, key_cr, 0), diff);
    cv::extractChannel(diff, cb, 0);
    cv::extractChannel(diff, cr, 2);
    cv::add(cb, cr, sum, cv::noArray(), CV_16U);
    cv::resize(sum, means, cv::Size(cols, rows), 0, 0, cv::INTER_AREA);
    cv::compare(means, key_tolerance, mask, cv::CMP_LT);
    cv::copyMakeBorder(mask, bordered, 1, 1, 1, 1, cv::BORDER_CONSTANT, 0);
    cv::distanceTransform(bordered, distance, cv::DIST_C, 3);
    benchmark::DoNotOptimize(distance.data);
  }
  state.SetBytesProcessed(std::int64_t(state.iterations()) * W * 2 * H);
}
BENCHMARK(BM_opencv_distance)->ArgNames({"region"})->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);
#endif

// The whole call. With a region it draws the star and writes the picture.
void BM_object_tracking_2(benchmark::State &state) {
  frame f(state.range(0) != 0, state.range(1) != 0);
  object_tracking_2 tracker;
  tracker.enabled() = true;
  for (auto _ : state) {
    tracker(f.view, 0.0f);
    state.PauseTiming();
    f.restore();
    state.ResumeTiming();
  }
  state.SetBytesProcessed(std::int64_t(state.iterations()) * W * 2 * H);
}

// The call without the picture: set-up, both passes, rays and star.
void BM_draw_star(benchmark::State &state) {
  frame f(state.range(0) != 0, state.range(1) != 0);
  object_tracking_2 tracker;
  for (auto _ : state) {
    benchmark::DoNotOptimize(Korvane::Sight::object_tracking_2_test_access::draw_star(tracker, f.view));
    state.PauseTiming();
    f.restore();
    state.ResumeTiming();
  }
  state.SetBytesProcessed(std::int64_t(state.iterations()) * W * 2 * H);
}

// The picture alone, as the call makes it: the conversion to BGRA, and with
// `write` the PNG.
void BM_picture(benchmark::State &state) {
  frame f(true, true);
  for (auto _ : state) {
    R::bitmap<R::pixel_bgra_u8> picture{};
    R::allocate(picture, W, H);
    for (int y = 0; y < H; ++y) R::convert_line(R::line(f.view, y), R::line(picture, y), W);
    if (state.range(0) != 0) benchmark::DoNotOptimize(R::io::write(L"d:\\temp\\track2.png", picture));
    R::release(picture);
  }
}

BENCHMARK(BM_chamfer_pass_1)->ArgNames({"region", "aligned"})->ArgsProduct({{1, 0}, {1, 0}})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_read_pass)->ArgNames({"aligned"})->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_object_tracking_2)->ArgNames({"region", "aligned"})->ArgsProduct({{1, 0}, {1, 0}})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_draw_star)->ArgNames({"region", "aligned"})->ArgsProduct({{1, 0}, {1, 0}})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_picture)->ArgNames({"write"})->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);

}  // namespace
