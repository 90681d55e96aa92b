// The chamfer tracker against its scalar model on exactly sized frames: the
// block scan, both members; the edge search; and the whole call on crafted and
// random scenes, whose star and picture must be the model's.
#include <gtest/gtest.h>
#include <png.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>
#include <vector>

#include <sight/frame/convert.h>
#include <sight/frame/rasterize.h>
#include <sight/object_tracking_2/chamfer_kernels.h>
#include <sight/object_tracking_2/object_tracking_2.h>

#include "object_tracking_2/chamfer_model.h"
#include "support/harness.h"

namespace Korvane::Sight {
struct object_tracking_2_test_access {
  static void setup(object_tracking_2 &t, int w, int h) { t.setup(w, h); }
  static std::array<int, 4> key(object_tracking_2 const &t) {
    return {t.key_cb, t.key_cr, t.key_tolerance, _mm_cvtsi128_si32(_mm_shuffle_epi32(t.key_cbcr, 0x1b))};
  }
  static y_bitmap &map(object_tracking_2 &t) { return t.chamfer_map; }
  static int pass_2(object_tracking_2 &t, int *position) { return t.chamfer_pass_2(position); }
  static int const (&outline())[256][2] { return object_tracking_2::g_outline; }
};
}  // namespace Korvane::Sight

namespace {

namespace R = Tamarind::Rasters;
namespace D = Korvane::Sight::detail;
namespace cm = chamfer_model;
namespace fs = std::filesystem;
using access = Korvane::Sight::object_tracking_2_test_access;
using Korvane::Sight::object_tracking_2;

// A 4:2:2 frame in memory of exactly its size, guard bytes about it.
struct test_frame : harness::frame {
  test_frame(int w, int h, int pad = 0, int offset = 0, bool flip = false)
      : frame(harness::layout::ycbcr_422, {w, h, pad, offset, flip}) {}
  void set(int x, int y, int cb, int cr) const {
    std::uint8_t *p = planes[0].line(y) + x / 2 * 4;
    p[0] = std::uint8_t(std::clamp(cb, 0, 255)), p[2] = std::uint8_t(std::clamp(cr, 0, 255));
  }
  Korvane::Sight::ycbcr_bitmap view() const { return frame::view<Korvane::Sight::ycbcr_bitmap>(); }
  cm::frame model() const { return {planes[0].data(), planes[0].shape().stride, g.width, g.height}; }
};

// Every cell of a cleared map after the scan, border included.
std::vector<int> scan(test_frame const &f, cm::key const &k) {
  int const w = f.g.width / 16 + 2, h = f.g.height / 8 + 2;
  std::vector<std::uint8_t> cells(std::size_t(w * h));
  Korvane::Sight::y_bitmap map{reinterpret_cast<R::pixel_y_u8 *>(cells.data()), w, h, w, false};
  __m128i const key = _mm_set1_epi32(k.cr << 16 | k.cb);
  (f.aligned() ? D::chamfer_pass_1<true> : D::chamfer_pass_1<false>)(f.view(), key, k.tolerance << 6, map);
  return {cells.begin(), cells.end()};
}

// width, height, placement: aligned tight and padded by 16 reversed (the
// aligned member), odd pad and tight 3 bytes off a 16-byte address.
class scan_test : public ::testing::TestWithParam<std::tuple<int, int, int>> {};

TEST_P(scan_test, matches_model) {
  auto const [w, h, place] = GetParam();
  int const pads[] = {0, 16, 5, 0}, offsets[] = {0, 0, 3, 3};
  std::mt19937 rng(unsigned(w * 131 + h));
  for (int round = 0; round < 4; ++round) {
    test_frame f(w, h, pads[place], offsets[place], place == 1);
    f.randomize(rng);
    cm::key const k{int(rng() % 256), int(rng() % 256), 1 + int(rng() % 80)};  // blocks spread either side
    std::vector<int> spread(std::size_t(w * h));
    for (int &a : spread) a = int(rng() % unsigned(2 * k.tolerance + 2));
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; x += 2) {
        int const a = spread[std::size_t(y / 8 * w + x / 16)];
        f.set(x, y, k.cb + int(rng() % unsigned(2 * a + 1)) - a, k.cr + int(rng() % unsigned(2 * a + 1)) - a);
      }
    test_frame const before = f;
    EXPECT_EQ(scan(f, k), cm::pass_1(f.model(), k)) << "round " << round;
    EXPECT_TRUE(harness::same_frame(before, f));
  }
}

INSTANTIATE_TEST_SUITE_P(frames, scan_test,
                         ::testing::Combine(::testing::Values(16, 47, 48, 100, 333), ::testing::Values(8, 23, 61),
                                            ::testing::Values(0, 1, 2, 3)));

// Three blocks: every pair exactly t from the key (the sum is the limit:
// outside), the same with one pair one closer, and the key itself.
TEST(scan, sum_at_limit_is_outside) {
  for (int t : {0, 1, 20, 255}) {
    test_frame f(48, 8);
    for (int i = 0; i < 8 * 24; ++i) f.set(i % 24 * 2, i / 24, i % 24 < 16 ? 128 + t / 2 : 128, i % 24 < 16 ? 128 - (t - t / 2) : 128);
    if (t > 0) f.set(20, 3, 128 + t / 2, 128 - (t - t / 2) + 1);
    std::vector<int> const cells = scan(f, {128, 128, t});
    EXPECT_EQ(std::vector<int>(cells.begin() + 6, cells.begin() + 9), (std::vector<int>{0, t > 0, t > 0})) << t;
  }
}

// Rays from random points by random steps on frames that are all key, hold
// key-coloured discs on pairs exactly the tolerance away, or are noise up to
// the tolerance. Regions that meet the frame's edge make the search clamp one
// coordinate while the other lies outside the frame.
class edge_test : public ::testing::TestWithParam<std::tuple<int, int, int>> {};

TEST_P(edge_test, end_points_match_model) {
  auto const [w, h, kind] = GetParam();
  std::mt19937 rng(unsigned(w * 7 + h * 3 + kind));
  test_frame f(w, h, 0, 5);
  cm::key const k{20 + int(rng() % 200), 20 + int(rng() % 200), 2 + int(rng() % 18)};
  int const disc[3] = {int(rng() % w), int(rng() % h), 4 + int(rng() % 40)};
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; x += 2) {
      int const dx = x - disc[0], dy = y - disc[1], dx2 = x - w / 2;
      bool const inside = kind == 0 || dx * dx + dy * dy < disc[2] * disc[2] || dx2 * dx2 + dy * dy < disc[2] * disc[2];
      int const n = kind == 2 ? int(rng() % unsigned(k.tolerance + 1)) : inside ? 0 : k.tolerance;
      f.set(x, y, k.cb + n / 2, k.cr - (n - n / 2));
    }
  D::edge_probe const probe{f.planes[0].data(), f.planes[0].shape().stride, w, h, k.cb, k.cr, k.tolerance};
  for (int ray = 0; ray < 400; ++ray) {
    int const start[2] = {int(rng() % w), int(rng() % h)};
    int const step[2] = {rng() % 8 == 0 ? 0 : int(rng() % 81) - 40, rng() % 8 == 0 ? 0 : int(rng() % 81) - 40};
    int got[2] = {-999, -999}, want[2] = {-999, -999};
    D::find_edge(probe, start, step, w - 1, h - 1, got);
    cm::edge(f.model(), k, start, step, want);
    ASSERT_TRUE(got[0] == want[0] && got[1] == want[1]) << "from " << start[0] << "," << start[1] << " by " << step[0]
                                                        << "," << step[1] << ": " << got[0] << "," << got[1];
  }
  // A pair exactly the tolerance away stops a ray probed at every pixel; one
  // closer lets it run to the frame's limit.
  for (int d : {20, 19}) {
    test_frame g(64, 8);
    for (int i = 0; i < 8 * 32; ++i) g.set(i % 32 * 2, i / 32, i % 32 == 20 && i / 32 == 4 ? 100 + d : 100, 150);
    int const start[2] = {2, 4}, step[2] = {1, 0};
    int end[2] = {};
    D::find_edge({g.planes[0].data(), g.planes[0].shape().stride, 64, 8, 100, 150, 20}, start, step, 63, 7, end);
    EXPECT_TRUE(end[0] == (d == 20 ? 40 : 63) && end[1] == 4) << d << ": " << end[0] << "," << end[1];
  }
}

INSTANTIATE_TEST_SUITE_P(frames, edge_test,
                         ::testing::Combine(::testing::Values(17, 48, 203), ::testing::Values(8, 33, 61),
                                            ::testing::Values(0, 1, 2)));

cm::key const default_key{111, 157, 20};
char const *const dump_path = "d:\\temp\\track2.png";

// kind 0: key-coloured blocks (x, y, across, down) only, 1: all key, 2: random
// blocks; m 0: nothing drawn, -1: the star where the model finds it.
struct scene { char const *name; int width, height, kind; std::vector<std::array<int, 4>> regions; int m, bx, by; };

// Key-coloured blocks (within 2 of the key per pair) on a backdrop far from
// it; returns the frame as the call must leave it: the model's star drawn on
// it, if any.
test_frame paint(test_frame &f, scene const &s) {
  std::mt19937 rng(7);
  int const w = f.g.width, h = f.g.height;
  std::vector<bool> on(std::size_t(w * h), s.kind == 1);
  for (std::size_t i = 0; s.kind == 2 && i < on.size(); ++i) on[i] = rng() % 8 != 0;
  for (auto const &r : s.regions)
    for (int i = 0; i < r[2] * r[3]; ++i) on[std::size_t((r[1] + i / r[2]) * w + r[0] + i % r[2])] = true;
  f.randomize(rng);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; x += 2) {
      bool const key = on[std::size_t(y / 8 * w + x / 16)];
      f.set(x, y, key ? default_key.cb + int(rng() % 3) - 1 : 200, key ? default_key.cr + int(rng() % 3) - 1 : 40);
    }
  test_frame drawn = f;
  int m = s.m, bx = s.bx, by = s.by, centre[2], ends[256][2];
  std::vector<int> map = cm::pass_1(f.model(), default_key);
  if (m < 0) m = cm::pass_2(map, w / 16 + 2, h / 8 + 2, bx, by);
  if (m < 2) return drawn;
  cm::rays(f.model(), default_key, m, bx, by, centre, ends);
  Korvane::Sight::ycbcr_bitmap v = drawn.view();
  for (auto const &end : ends) R::rasterize::line(v, centre, end, {128, 255, 128, 255});
  return drawn;
}

// Each test runs in a working folder of its own, where the picture lands.
struct in_temp_folder : ::testing::Test {
  fs::path home = fs::current_path(), folder = fs::temp_directory_path() / ("chamfer_" + std::to_string(std::random_device{}()));
  in_temp_folder() { fs::create_directory(folder), fs::current_path(folder); }
  ~in_temp_folder() override { fs::current_path(home), fs::remove_all(folder); }
};

class scene_test : public in_temp_folder, public ::testing::WithParamInterface<std::tuple<scene, bool>> {};

TEST_P(scene_test, star_and_picture) {
  auto const &[s, aligned] = GetParam();
  test_frame f(s.width, s.height, 0, aligned ? 0 : 1);
  test_frame const expected = paint(f, s);
  object_tracking_2 tracker;
  tracker.enabled() = true;
  tracker(f.view(), 0.0f);
  ASSERT_TRUE(harness::same_frame(expected, f));
  ASSERT_EQ(fs::exists(dump_path), s.m != 0);
  if (s.m == 0) return;

  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  ASSERT_TRUE(png_image_begin_read_from_file(&image, dump_path));
  ASSERT_TRUE(int(image.width) == s.width && int(image.height) == s.height);
  image.format = PNG_FORMAT_BGRA;
  std::vector<R::pixel_bgra_u8> picture(std::size_t(s.width * s.height)), want(picture.size());
  ASSERT_TRUE(png_image_finish_read(&image, nullptr, picture.data(), 0, nullptr));
  for (int y = 0; y < s.height; ++y) R::convert_line(R::line(f.view(), y), &want[std::size_t(y * s.width)], s.width);
  EXPECT_EQ(0, std::memcmp(picture.data(), want.data(), picture.size() * 4));

  // All key: each ray ends on a limit, or one line past the frame where x
  // met its limit first and the search stopped at the frame's edge.
  for (auto const &e : access::outline())
    EXPECT_TRUE(s.kind != 1 || e[0] == 0 || e[0] == s.width - 1 || e[1] <= 0 || e[1] >= s.height - 1) << e[0] << "," << e[1];
}

std::vector<scene> const scenes = {
    {"square3", 160, 80, 0, {{3, 3, 3, 3}}, 2, 4, 4},      {"square2", 160, 80, 0, {{3, 3, 2, 2}}, 0, 0, 0},
    {"bar_across", 160, 80, 0, {{1, 4, 8, 1}}, 0, 0, 0},   {"bar_down", 160, 80, 0, {{4, 1, 1, 8}}, 0, 0, 0},
    {"tie_rightmost", 160, 80, 0, {{1, 3, 3, 3}, {5, 3, 3, 3}}, 2, 6, 4},
    {"tie_lowest", 160, 80, 0, {{5, 1, 3, 3}, {1, 5, 3, 3}}, 2, 2, 6},
    {"corner", 100, 60, 0, {{0, 0, 4, 7}}, -1, 0, 0},      {"full_47x24", 47, 24, 1, {}, 0, 0, 0},
    {"full_48x23", 48, 23, 1, {}, 0, 0, 0},                {"full_48x24", 48, 24, 1, {}, 2, 1, 1},
    {"full_203x61", 203, 61, 1, {}, -1, 0, 0},             {"random", 320, 240, 2, {}, -1, 0, 0},
};

INSTANTIATE_TEST_SUITE_P(scenes, scene_test, ::testing::Combine(::testing::ValuesIn(scenes), ::testing::Bool()),
                         [](auto const &i) { return std::get<0>(i.param).name + std::string(std::get<1>(i.param) ? "_aligned" : ""); });

// Disabled, a tracker touches nothing. A copy has cells of its own; an
// assignment keeps the size of a map that exists until the next frame's
// set-up.
TEST_F(in_temp_folder, disabled_and_copies) {
  test_frame f(160, 80), small(48, 24);
  test_frame const expected = paint(f, scenes[0]), before = f;
  auto source = std::make_unique<object_tracking_2>();
  (*source)(f.view(), 0.0f);
  EXPECT_TRUE(harness::same_frame(before, f) && !fs::exists(dump_path) && access::map(*source).data == nullptr);
  source->enabled() = true;
  (*source)(f.view(), 0.0f);
  object_tracking_2 copy(*source), assigned(*source);
  assigned(small.view(), 0.0f);
  assigned = *source;
  source.reset();
  EXPECT_TRUE(access::map(assigned).width == 5 && access::map(copy).width == 12);
  for (object_tracking_2 *t : {&copy, &assigned}) {
    f.planes[0].copy_from(before.planes[0]);
    (*t)(f.view(), 0.0f);
    EXPECT_TRUE(harness::same_frame(expected, f));
  }
}

// The first line and column are never chosen; the last block's border
// neighbours bring it to 1.
TEST(chamfer_pass_2, first_line_and_column_never_chosen) {
  object_tracking_2 tracker;
  access::setup(tracker, 4, 4);
  Korvane::Sight::y_bitmap &map = access::map(tracker);
  for (int i = 1; i <= 4; ++i) R::line(map, 1)[i].y = R::line(map, i)[1].y = 9;
  int position[2] = {-1, -1};
  int const none = access::pass_2(tracker, position);
  R::line(map, 4)[4].y = 3;
  EXPECT_TRUE(none == 0 && access::pass_2(tracker, position) == 1 && position[0] == 3 && position[1] == 3);
}

// The backward pass against the model on random maps (values up to 255, so
// that the 8-bit sums saturate), widths around the 16-cell steps.
TEST(chamfer_pass_2, random_maps_match_model) {
  std::mt19937 rng(5);
  for (int cols : {1, 2, 3, 14, 15, 16, 17, 18, 31, 33, 47, 120}) {
    object_tracking_2 tracker;
    access::setup(tracker, cols, 9);
    Korvane::Sight::y_bitmap &map = access::map(tracker);
    int const w = map.width, h = map.height;
    std::vector<int> model(std::size_t(w * h));
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        // Mostly high cells with rare low ones, so that ramps run across
        // whole 16-cell steps and beyond.
        int const v = rng() % 23 == 0 ? int(rng() % 5) : 255 - int(rng() % 3);
        R::line(map, y)[x].y = std::uint8_t(v), model[std::size_t(y * w + x)] = v;
      }
    int position[2] = {-1, -1}, bx = -1, by = -1;
    int const m = cm::pass_2(model, w, h, bx, by);
    ASSERT_EQ(access::pass_2(tracker, position), m) << cols;
    EXPECT_TRUE(position[0] == bx && position[1] == by) << cols;
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) ASSERT_EQ(R::line(map, y)[x].y, model[std::size_t(y * w + x)]) << cols << " " << x << " " << y;
  }
}

// The key from the settings (Cb, Cr, tolerance, and the top lane of the
// vector), with the worked numbers.
TEST(setup, key) {
  struct { float r, g, b, tolerance; int cb, cr, t; } const rows[] = {{0.78431374f, 0.5372549f, 0.46666667f, 0.078431375f, 111, 157, 20},
                    {0, 0, 0, 0, 128, 128, 0}, {0, 0, 0, 1, 128, 128, 255},
                    {1, 0, 0, 7, 90, 240, 255}, {0, 0, 1, -0.5f, 240, 110, 0}};
  for (auto const &r : rows) {
    object_tracking_2 t;
    t.color().r() = r.r, t.color().g() = r.g, t.color().b() = r.b, t.tolerance() = r.tolerance;
    access::setup(t, 1, 1);
    EXPECT_EQ(access::key(t), (std::array<int, 4>{r.cb, r.cr, r.t, r.cr << 16 | r.cb})) << r.r << r.g << r.b << r.tolerance;
  }
}

}  // namespace
