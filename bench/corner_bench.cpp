// Corner detection on a real photograph: this detector (segment test,
// strength, suppression) against OpenCV's FAST with suppression on the same
// luma, both on one thread, and the scalar model for scale.
#include <sight/corner/detection.h>
#include <sight/frame/bitmap.h>

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <map>
#include <utility>
#include <vector>

#include "corner/segment_model.h"
#include "support/harness.h"

#ifdef SIGHT_HAVE_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/features2d.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace {

#ifdef SIGHT_HAVE_OPENCV

namespace rasters = Tamarind::Rasters;
using frame_type = Korvane::Sight::corner::detection::frame_type;

constexpr int threshold = 70;
char const *const photograph = "/usr/share/wallpapers/EveningGlow/contents/images/1920x1080.jpg";

// The photograph's luma at w x h, loaded once per size.
cv::Mat const &luma(int w, int h) {
  static std::map<std::pair<int, int>, cv::Mat> cache;
  cv::Mat &m = cache[{w, h}];
  if (m.empty()) {
    cv::Mat colour = cv::imread(photograph, cv::IMREAD_COLOR);
    if (colour.empty()) return m;
    if (colour.cols != w || colour.rows != h) cv::resize(colour, colour, cv::Size(w, h), 0, 0, cv::INTER_AREA);
    cv::cvtColor(colour, m, cv::COLOR_BGR2GRAY);
  }
  return m;
}

// A 4:2:2 frame (the tests' frames) of the luma with neutral chroma: 16-byte
// aligned rows, or the same moved one byte off so that the unaligned member
// runs.
struct frame_422 : harness::frame {
  frame_type frame;
  frame_422(cv::Mat const &g, bool aligned)
      : harness::frame(harness::layout::ycbcr_422, {g.cols, g.rows, 0, aligned ? 0 : 1, false}),
        frame(view<frame_type>()) {
    paint([&](int x, int y) {
      std::uint8_t const v = g.at<std::uint8_t>(y, x);
      return harness::sample{v, v, v, 255, v, 128, 128};
    });
  }
};

// The detector on one frame, again and again, with its count of survivors.
void run_detector(benchmark::State &state, cv::Mat const &g, bool aligned) {
  frame_422 f(g, aligned);
  Korvane::Sight::corner::detection d;
  d.threshold() = threshold;
  int count = 0;
  for (auto _ : state) {
    d = f.frame;
    count = d;
    benchmark::DoNotOptimize(count);
  }
  state.counters["corners"] = count;
  state.SetBytesProcessed(std::int64_t(state.iterations()) * f.frame.height * rasters::line_bytes(f.frame));
}

void BM_corner_detection_422(benchmark::State &state) {
  cv::Mat const &g = luma(int(state.range(0)), int(state.range(1)));
  if (g.empty()) return state.SkipWithError("photograph not found");
  run_detector(state, g, state.range(2) != 0);
}

// A flat grey frame of the same size: no block passes the first test, so
// this is the floor of the frame path (halving the luma, the first test on
// positions 0, 4, 8 and 12).
void BM_corner_detection_422_flat(benchmark::State &state) {
  run_detector(state, cv::Mat(int(state.range(1)), int(state.range(0)), CV_8UC1, cv::Scalar(128)), true);
}

// OpenCV's FAST with suppression on the gray picture. With wide = 1 OpenCV
// picks its own code path at run time (256-bit on a processor that has it);
// with wide = 0 its dispatch is switched off, which leaves its 128-bit path.
void BM_cv_fast_gray(benchmark::State &state) {
  cv::Mat const &g = luma(int(state.range(0)), int(state.range(1)));
  if (g.empty()) return state.SkipWithError("photograph not found");
  cv::setNumThreads(1);
  cv::setUseOptimized(state.range(2) != 0);
  std::vector<cv::KeyPoint> points;
  for (auto _ : state) {
    cv::FAST(g, points, threshold, true, cv::FastFeatureDetector::TYPE_9_16);
    benchmark::DoNotOptimize(points.data());
  }
  cv::setUseOptimized(true);
  state.counters["corners"] = double(points.size());
  state.SetBytesProcessed(std::int64_t(state.iterations()) * g.rows * g.cols);
}

// The naive model: segment test of every scanned pixel, strengths, suppression.
void BM_corner_model_422(benchmark::State &state) {
  cv::Mat const &g = luma(int(state.range(0)), int(state.range(1)));
  if (g.empty()) return state.SkipWithError("photograph not found");
  frame_422 f(g, true);
  corner_model::picture const p{reinterpret_cast<std::uint8_t const *>(f.frame.data), f.frame.width,
                                f.frame.height, f.frame.stride};
  int count = 0;
  for (auto _ : state) {
    auto records = corner_model::corners(p, threshold);
    count = corner_model::non_maxima_suppresion(records);
    benchmark::DoNotOptimize(count);
  }
  state.counters["corners"] = count;
  state.SetBytesProcessed(std::int64_t(state.iterations()) * f.frame.height * rasters::line_bytes(f.frame));
}

BENCHMARK(BM_corner_detection_422)
    ->ArgNames({"w", "h", "aligned"})
    ->ArgsProduct({{720, 1920}, {576, 1080}, {0, 1}})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_corner_detection_422_flat)
    ->ArgNames({"w", "h"})
    ->Args({720, 576})
    ->Args({1920, 1080})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_cv_fast_gray)
    ->ArgNames({"w", "h", "wide"})
    ->ArgsProduct({{720, 1920}, {576, 1080}, {0, 1}})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_corner_model_422)->ArgNames({"w", "h"})->Args({1920, 1080})->Unit(benchmark::kMillisecond);

#endif  // SIGHT_HAVE_OPENCV

}  // namespace
