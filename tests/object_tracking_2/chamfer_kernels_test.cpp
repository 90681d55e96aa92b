// The block scan against its model on random frames and keys, both members,
// on exactly sized frames with and without padding and at odd addresses; the
// block limit itself; and the edge search's end points against its model on
// frames whose regions run into the frame's edges.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <sstream>
#include <vector>

#include <sight/object_tracking_2/chamfer_kernels.h>

#include "object_tracking_2/chamfer_model.h"
#include "object_tracking_2/test_frame.h"

namespace {

namespace R = Tamarind::Rasters;
namespace cm = chamfer_model;
namespace D = Korvane::Sight::detail;
using chamfer_test::test_frame;

int clamp8(int v) { return v < 0 ? 0 : v > 255 ? 255 : v; }

// Every cell of the map after the scan, border included, on a cleared map.
std::vector<int> scan(test_frame &f, cm::key const &k, bool aligned) {
  Korvane::Sight::y_bitmap map{};
  R::allocate(map, f.width / 16 + 2, f.height / 8 + 2);
  std::memset(map.data, 0, std::size_t(map.stride * map.height));
  __m128i const key = _mm_set1_epi32(k.cr << 16 | k.cb);
  if (aligned)
    D::chamfer_pass_1<true>(f.view(), key, k.tolerance << 6, map);
  else
    D::chamfer_pass_1<false>(f.view(), key, k.tolerance << 6, map);
  std::vector<int> cells;
  for (int y = 0; y < map.height; ++y)
    for (int x = 0; x < map.width; ++x) cells.push_back(R::line(map, y)[x].y);
  R::release(map);
  return cells;
}

struct scan_case {
  int width, height, pad, offset;
  bool aligned;
};
void PrintTo(scan_case const &c, std::ostream *os) {
  *os << c.width << "x" << c.height << " pad " << c.pad << " offset " << c.offset << (c.aligned ? " aligned" : "");
}

class scan_test : public ::testing::TestWithParam<scan_case> {};

TEST_P(scan_test, matches_model) {
  scan_case const c = GetParam();
  std::mt19937 rng(unsigned(c.width * 131 + c.height));
  for (int round = 0; round < 4; ++round) {
    test_frame f(c.width, c.height, c.pad, c.offset, c.aligned);
    for (std::size_t i = 0; i < f.size; ++i) f.memory[i] = std::uint8_t(rng());
    cm::key const k{int(rng() % 256), int(rng() % 256), 1 + int(rng() % 80)};
    // Each block gets its own spread around the key, so that block sums fall
    // on both sides of the limit.
    std::vector<int> spread(std::size_t((c.width / 16 + 1) * (c.height / 8 + 1)));
    for (int &s : spread) s = int(rng() % unsigned(2 * k.tolerance + 2));
    for (int y = 0; y < c.height; ++y)
      for (int x = 0; x < c.width; x += 2) {
        int const a = spread[std::size_t(y / 8 * (c.width / 16 + 1) + x / 16)];
        f.set(x, y, clamp8(k.cb + int(rng() % unsigned(2 * a + 1)) - a), clamp8(k.cr + int(rng() % unsigned(2 * a + 1)) - a));
      }
    std::vector<int> const model = cm::pass_1(f.model(), k);
    EXPECT_EQ(scan(f, k, c.aligned), model) << "round " << round;
  }
}

std::vector<scan_case> scan_cases() {
  std::vector<scan_case> cases;
  for (int w : {16, 47, 48, 100, 333})
    for (int h : {8, 23, 61}) {
      for (int pad : {0, 16}) cases.push_back({w, h, pad, 0, true});
      for (int pad : {0, 5}) cases.push_back({w, h, pad, 3, false});
    }
  return cases;
}

INSTANTIATE_TEST_SUITE_P(frames, scan_test, ::testing::ValuesIn(scan_cases()),
                         [](auto const &info) {
                           scan_case const &c = info.param;
                           std::ostringstream name;
                           name << "w" << c.width << "_h" << c.height << "_pad" << c.pad
                                << (c.aligned ? "_aligned" : "_unaligned");
                           return name.str();
                         });

// Three blocks: every pair exactly `t` from the key (the sum is the limit:
// outside), the same with one pair one closer (inside), and the key itself
// (inside unless t is 0).
class limit_test : public ::testing::TestWithParam<int> {};

TEST_P(limit_test, sum_at_limit_is_outside) {
  int const t = GetParam();
  test_frame f(48, 8, 0, 0, true);
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 48; x += 2) f.set(x, y, x < 32 ? 128 + t / 2 : 128, x < 32 ? 128 - (t - t / 2) : 128);
  if (t > 0) f.set(20, 3, 128 + t / 2, 128 - (t - t / 2) + 1);
  std::vector<int> const cells = scan(f, {128, 128, t}, true);
  EXPECT_EQ(std::vector<int>(cells.begin() + 6, cells.begin() + 9), (std::vector<int>{0, t > 0, t > 0}));
}

INSTANTIATE_TEST_SUITE_P(tolerances, limit_test, ::testing::Values(0, 1, 20, 255));

// Rays from random points by random steps, on frames that are all key, hold
// key-coloured discs, or are noise about the key. Out-of-range steps and
// regions that meet the frame's edge make the search clamp one coordinate
// while the other lies outside the frame.
class edge_test : public ::testing::TestWithParam<std::tuple<int, int, int>> {};

TEST_P(edge_test, end_points_match_model) {
  auto const [w, h, kind] = GetParam();
  std::mt19937 rng(unsigned(w * 7 + h * 3 + kind));
  test_frame f(w, h);
  cm::key const k{20 + int(rng() % 200), 20 + int(rng() % 200), 2 + int(rng() % 18)};
  int const discs[3][3] = {{int(rng() % w), int(rng() % h), 4 + int(rng() % 40)},
                           {int(rng() % w), int(rng() % h), 4 + int(rng() % 40)},
                           {0, int(rng() % h), 4 + int(rng() % 40)}};
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; x += 2) {
      bool inside = kind == 0;
      for (auto const &d : discs) inside |= kind == 1 && (x - d[0]) * (x - d[0]) + (y - d[1]) * (y - d[1]) < d[2] * d[2];
      int const n = kind == 2 ? int(rng() % unsigned(k.tolerance + 1)) : inside ? 0 : k.tolerance;
      f.set(x, y, k.cb + n / 2, k.cr - (n - n / 2));
    }
  D::edge_probe const probe{f.memory, f.stride, w, h, k.cb, k.cr, k.tolerance};
  for (int ray = 0; ray < 400; ++ray) {
    int const start[2] = {int(rng() % w), int(rng() % h)};
    int const step[2] = {rng() % 8 == 0 ? 0 : int(rng() % 81) - 40, rng() % 8 == 0 ? 0 : int(rng() % 81) - 40};
    int got[2] = {-999, -999}, want[2] = {-999, -999};
    D::find_edge(probe, start, step, w - 1, h - 1, got);
    cm::edge(f.model(), k, start, step, w - 1, h - 1, want);
    ASSERT_TRUE(got[0] == want[0] && got[1] == want[1])
        << "from " << start[0] << "," << start[1] << " by " << step[0] << "," << step[1] << ": " << got[0] << ","
        << got[1] << ", model " << want[0] << "," << want[1];
  }
}

INSTANTIATE_TEST_SUITE_P(frames, edge_test,
                         ::testing::Combine(::testing::Values(17, 48, 203), ::testing::Values(8, 33, 61),
                                            ::testing::Values(0, 1, 2)));

// A pair at exactly the tolerance stops a ray probed at every pixel; one
// closer lets it run to the frame's limit.
TEST(edge_search, pair_at_tolerance_stops_ray) {
  for (int d : {20, 19}) {
    test_frame f(64, 8);
    for (int y = 0; y < 8; ++y)
      for (int x = 0; x < 64; x += 2) f.set(x, y, 100, 150);
    f.set(40, 4, 100 + d / 2, 150 + (d - d / 2));
    int const start[2] = {2, 4}, step[2] = {1, 0};
    int end[2] = {};
    D::find_edge({f.memory, f.stride, 64, 8, 100, 150, 20}, start, step, 63, 7, end);
    EXPECT_EQ(end[0], d == 20 ? 40 : 63);
    EXPECT_EQ(end[1], 4);
  }
}

}  // namespace
