// The tracker's stages after the moment pass, on a grid of 1080p BGRA cells
// (240 by 135): the region fill and choice of the winner, and the fit.
// Patterns: a solid object over a quarter of the grid, random speckle (many
// small regions), and a one-cell-wide serpentine (one region, deepest fill).
#include <benchmark/benchmark.h>

#include <random>

#include "object_tracking/tracker_access.h"

namespace {

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

}  // namespace
