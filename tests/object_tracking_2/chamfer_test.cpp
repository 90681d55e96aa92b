// The chamfer tracker against its scalar model on frames in buffers of
// exactly their size (AddressSanitizer builds catch any read past them):
// the block scan on random frames and keys, both members; the block limit;
// the edge search's end points where regions meet the frame's edge; and the
// whole call on crafted and random scenes, whose star must be the model's,
// drawn with the same lines, and whose picture must decode to the drawn frame.
#include <gtest/gtest.h>
#include <png.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <memory>
#include <new>
#include <random>
#include <vector>

#include <sight/frame/convert.h>
#include <sight/frame/rasterize.h>
#include <sight/object_tracking_2/chamfer_kernels.h>
#include <sight/object_tracking_2/object_tracking_2.h>

#include "object_tracking_2/chamfer_model.h"

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

// `offset` bytes, then lines of `stride` bytes (the line, rounded up to 16
// when `round16`, plus `pad`), the last line ending the buffer.
struct test_frame {
  int width, height, stride, offset;
  std::size_t size;
  struct free16 {
    void operator()(std::uint8_t *p) const { operator delete[](p, std::align_val_t(16)); }
  };
  std::unique_ptr<std::uint8_t[], free16> memory;
  test_frame(int w, int h, int pad = 0, int offset_ = 0, bool round16 = false)
      : width(w), height(h), stride((round16 ? ((w + 1) / 2 * 4 + 15) / 16 * 16 : (w + 1) / 2 * 4) + pad),
        offset(offset_), size(std::size_t(offset + stride * (h - 1) + (w + 1) / 2 * 4)),
        memory(new (std::align_val_t(16)) std::uint8_t[size]) {}
  void set(int x, int y, int cb, int cr) {
    std::uint8_t *p = &memory[std::size_t(offset + y * stride + x / 2 * 4)];
    p[0] = std::uint8_t(std::clamp(cb, 0, 255)), p[2] = std::uint8_t(std::clamp(cr, 0, 255));
  }
  Korvane::Sight::ycbcr_bitmap view() const {
    return {reinterpret_cast<R::pixel_ycbcr_u8 *>(&memory[std::size_t(offset)]), width, height, stride, false};
  }
  cm::frame model() const { return {&memory[std::size_t(offset)], stride, width, height}; }
  std::vector<std::uint8_t> contents() const { return {&memory[0], &memory[size]}; }
};

// Every cell of a cleared map after the scan, border included.
std::vector<int> scan(test_frame const &f, cm::key const &k, bool aligned) {
  Korvane::Sight::y_bitmap map{};
  R::allocate(map, f.width / 16 + 2, f.height / 8 + 2);
  std::memset(map.data, 0, std::size_t(map.stride * map.height));
  __m128i const key = _mm_set1_epi32(k.cr << 16 | k.cb);
  (aligned ? D::chamfer_pass_1<true> : D::chamfer_pass_1<false>)(f.view(), key, k.tolerance << 6, map);
  std::vector<int> cells;
  for (int i = 0; i < map.width * map.height; ++i) cells.push_back(R::line(map, i / map.width)[i % map.width].y);
  R::release(map);
  return cells;
}

// width, height, pad, member: the aligned one on lines padded by 16 * pad
// bytes, the unaligned one 3 bytes off a 16-byte address.
class scan_test : public ::testing::TestWithParam<std::tuple<int, int, int, bool>> {};

TEST_P(scan_test, matches_model) {
  auto const [w, h, pad, aligned] = GetParam();
  std::mt19937 rng(unsigned(w * 131 + h));
  for (int round = 0; round < 4; ++round) {
    test_frame f(w, h, aligned ? 16 * pad : pad, aligned ? 0 : 3, aligned);
    for (std::size_t i = 0; i < f.size; ++i) f.memory[i] = std::uint8_t(rng());
    cm::key const k{int(rng() % 256), int(rng() % 256), 1 + int(rng() % 80)};
    // A spread about the key for each block, so that sums fall either side
    // of the limit.
    std::vector<int> spread(std::size_t(w * h));
    for (int &a : spread) a = int(rng() % unsigned(2 * k.tolerance + 2));
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; x += 2) {
        int const a = spread[std::size_t(y / 8 * w + x / 16)];
        f.set(x, y, k.cb + int(rng() % unsigned(2 * a + 1)) - a, k.cr + int(rng() % unsigned(2 * a + 1)) - a);
      }
    EXPECT_EQ(scan(f, k, aligned), cm::pass_1(f.model(), k)) << "round " << round;
  }
}

INSTANTIATE_TEST_SUITE_P(frames, scan_test,
                         ::testing::Combine(::testing::Values(16, 47, 48, 100, 333), ::testing::Values(8, 23, 61),
                                            ::testing::Values(0, 5, 16), ::testing::Bool()));

// Three blocks: every pair exactly t from the key (the sum is the limit:
// outside), the same with one pair one closer, and the key itself.
TEST(scan, sum_at_limit_is_outside) {
  for (int t : {0, 1, 20, 255}) {
    test_frame f(48, 8, 0, 0, true);
    for (int i = 0; i < 8 * 24; ++i) f.set(i % 24 * 2, i / 24, i % 24 < 16 ? 128 + t / 2 : 128, i % 24 < 16 ? 128 - (t - t / 2) : 128);
    if (t > 0) f.set(20, 3, 128 + t / 2, 128 - (t - t / 2) + 1);
    std::vector<int> const cells = scan(f, {128, 128, t}, true);
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
  test_frame f(w, h);
  cm::key const k{20 + int(rng() % 200), 20 + int(rng() % 200), 2 + int(rng() % 18)};
  int const disc[3] = {int(rng() % w), int(rng() % h), 4 + int(rng() % 40)};
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; x += 2) {
      int const dx = x - disc[0], dy = y - disc[1], dx2 = x - w / 2;
      bool const inside = kind == 0 || dx * dx + dy * dy < disc[2] * disc[2] || dx2 * dx2 + dy * dy < disc[2] * disc[2];
      int const n = kind == 2 ? int(rng() % unsigned(k.tolerance + 1)) : inside ? 0 : k.tolerance;
      f.set(x, y, k.cb + n / 2, k.cr - (n - n / 2));
    }
  D::edge_probe const probe{f.memory.get(), f.stride, w, h, k.cb, k.cr, k.tolerance};
  for (int ray = 0; ray < 400; ++ray) {
    int const start[2] = {int(rng() % w), int(rng() % h)};
    int const step[2] = {rng() % 8 == 0 ? 0 : int(rng() % 81) - 40, rng() % 8 == 0 ? 0 : int(rng() % 81) - 40};
    int got[2] = {-999, -999}, want[2] = {-999, -999};
    D::find_edge(probe, start, step, w - 1, h - 1, got);
    cm::edge(f.model(), k, start, step, want);
    ASSERT_TRUE(got[0] == want[0] && got[1] == want[1]) << "from " << start[0] << "," << start[1] << " by " << step[0]
                                                        << "," << step[1] << ": " << got[0] << "," << got[1];
  }
}

INSTANTIATE_TEST_SUITE_P(frames, edge_test,
                         ::testing::Combine(::testing::Values(17, 48, 203), ::testing::Values(8, 33, 61),
                                            ::testing::Values(0, 1, 2)));

// A pair exactly the tolerance away stops a ray probed at every pixel; one
// closer lets it run to the frame's limit.
TEST(edge_search, pair_at_tolerance_stops_ray) {
  for (int d : {20, 19}) {
    test_frame f(64, 8);
    for (int i = 0; i < 8 * 32; ++i) f.set(i % 32 * 2, i / 32, i % 32 == 20 && i / 32 == 4 ? 100 + d : 100, 150);
    int const start[2] = {2, 4}, step[2] = {1, 0};
    int end[2] = {};
    D::find_edge({f.memory.get(), f.stride, 64, 8, 100, 150, 20}, start, step, 63, 7, end);
    EXPECT_TRUE(end[0] == (d == 20 ? 40 : 63) && end[1] == 4) << d << ": " << end[0] << "," << end[1];
  }
}

cm::key const default_key{111, 157, 20};
char const *const dump_path = "d:\\temp\\track2.png";

struct scene {
  char const *name;
  int width, height;
  int kind;                                 // 0 blocks, 1 all key, 2 random blocks
  std::vector<std::array<int, 4>> regions;  // key-coloured blocks: x, y, across, down
  int m, bx, by;                            // m 0: nothing drawn; -1: where the model finds it
};
void PrintTo(scene const &s, std::ostream *os) { *os << s.name; }

// Key-coloured blocks (within 2 of the key per pair) on a backdrop far from it.
void paint(test_frame &f, scene const &s) {
  std::mt19937 rng(7);
  std::vector<bool> on(std::size_t(f.width * f.height), s.kind == 1);
  for (std::size_t i = 0; s.kind == 2 && i < on.size(); ++i) on[i] = rng() % 8 != 0;
  for (auto const &r : s.regions)
    for (int i = 0; i < r[2] * r[3]; ++i) on[std::size_t((r[1] + i / r[2]) * f.width + r[0] + i % r[2])] = true;
  for (std::size_t i = 0; i < f.size; ++i) f.memory[i] = std::uint8_t(rng());
  for (int y = 0; y < f.height; ++y)
    for (int x = 0; x < f.width; x += 2) {
      bool const key = on[std::size_t(y / 8 * f.width + x / 16)];
      f.set(x, y, key ? default_key.cb + int(rng() % 3) - 1 : 200, key ? default_key.cr + int(rng() % 3) - 1 : 40);
    }
}

// The frame as the call must leave it: the model's star drawn on it, if any.
std::vector<std::uint8_t> drawn(test_frame &f, scene const &s) {
  std::vector<std::uint8_t> const before = f.contents();
  int m = s.m, bx = s.bx, by = s.by, centre[2], ends[256][2];
  std::vector<int> map = cm::pass_1(f.model(), default_key);
  if (m < 0) m = cm::pass_2(map, f.width / 16 + 2, f.height / 8 + 2, bx, by);
  if (m < 2) return before;
  cm::rays(f.model(), default_key, m, bx, by, centre, ends);
  Korvane::Sight::ycbcr_bitmap v = f.view();
  for (auto const &end : ends) R::rasterize::line(v, centre, end, {128, 255, 128, 255});
  std::vector<std::uint8_t> after = f.contents();
  std::memcpy(&f.memory[0], before.data(), f.size);
  return after;
}

// Each test runs in a working folder of its own, where the picture lands.
class in_temp_folder : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::create_directory(folder = fs::temp_directory_path() / ("chamfer_" + std::to_string(std::random_device{}())));
    fs::current_path(folder);
  }
  void TearDown() override {
    fs::current_path(home);
    fs::remove_all(folder);
  }
  fs::path home = fs::current_path(), folder;
};

class scene_test : public in_temp_folder, public ::testing::WithParamInterface<std::tuple<scene, bool>> {};

TEST_P(scene_test, star_and_picture) {
  auto const &[s, aligned] = GetParam();
  test_frame f(s.width, s.height, 0, aligned ? 0 : 1, aligned);
  paint(f, s);
  std::vector<std::uint8_t> const expected = drawn(f, s);
  object_tracking_2 tracker;
  tracker.enabled() = true;
  tracker(f.view(), 0.0f);
  ASSERT_EQ(f.contents(), expected);
  ASSERT_EQ(fs::exists(dump_path), s.m != 0);
  if (s.m == 0) return;

  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  ASSERT_TRUE(png_image_begin_read_from_file(&image, dump_path));
  image.format = PNG_FORMAT_BGRA;
  std::vector<R::pixel_bgra_u8> picture(std::size_t(s.width * s.height)), want(picture.size());
  ASSERT_TRUE(png_image_finish_read(&image, nullptr, picture.data(), 0, nullptr));
  ASSERT_TRUE(int(image.width) == s.width && int(image.height) == s.height);
  for (int y = 0; y < s.height; ++y) R::convert_line(R::line(f.view(), y), &want[std::size_t(y * s.width)], s.width);
  EXPECT_EQ(0, std::memcmp(picture.data(), want.data(), picture.size() * 4));

  // All key: each ray ends on a limit, or one line past the frame where x
  // met its limit first and the search stopped at the frame's edge.
  for (auto const &e : access::outline())
    EXPECT_TRUE(s.kind != 1 || e[0] == 0 || e[0] == s.width - 1 || e[1] <= 0 || e[1] >= s.height - 1) << e[0] << "," << e[1];
}

std::vector<scene> const scenes = {
    {"square3", 160, 80, 0, {{3, 3, 3, 3}}, 2, 4, 4},
    {"square2", 160, 80, 0, {{3, 3, 2, 2}}, 0, 0, 0},
    {"bar_across", 160, 80, 0, {{1, 4, 8, 1}}, 0, 0, 0},
    {"bar_down", 160, 80, 0, {{4, 1, 1, 8}}, 0, 0, 0},
    {"tie_rightmost", 160, 80, 0, {{1, 3, 3, 3}, {5, 3, 3, 3}}, 2, 6, 4},
    {"tie_lowest", 160, 80, 0, {{5, 1, 3, 3}, {1, 5, 3, 3}}, 2, 2, 6},
    {"corner", 100, 60, 0, {{0, 0, 4, 7}}, -1, 0, 0},
    {"full_47x24", 47, 24, 1, {}, 0, 0, 0},
    {"full_48x23", 48, 23, 1, {}, 0, 0, 0},
    {"full_48x24", 48, 24, 1, {}, 2, 1, 1},
    {"full_203x61", 203, 61, 1, {}, -1, 0, 0},
    {"random", 320, 240, 2, {}, -1, 0, 0},
};

INSTANTIATE_TEST_SUITE_P(scenes, scene_test, ::testing::Combine(::testing::ValuesIn(scenes), ::testing::Bool()),
                         [](auto const &info) {
                           return std::string(std::get<0>(info.param).name) + (std::get<1>(info.param) ? "_aligned" : "");
                         });

TEST_F(in_temp_folder, disabled_touches_nothing) {
  test_frame f(160, 80);
  paint(f, {"", 160, 80, 1, {}, 0, 0, 0});
  std::vector<std::uint8_t> const before = f.contents();
  object_tracking_2 tracker;
  tracker(f.view(), 0.0f);
  EXPECT_TRUE(f.contents() == before && !fs::exists(dump_path) && access::map(tracker).data == nullptr);
}

// A copy has cells of its own; an assignment keeps the size of a map that
// exists until the next frame's set-up.
TEST_F(in_temp_folder, copies_outlive_source) {
  scene const s{"", 160, 80, 0, {{3, 3, 3, 3}}, 2, 4, 4};
  test_frame f(160, 80), small(48, 24);
  paint(f, s);
  std::vector<std::uint8_t> const expected = drawn(f, s), before = f.contents();
  auto source = std::make_unique<object_tracking_2>();
  source->enabled() = true;
  (*source)(f.view(), 0.0f);
  object_tracking_2 copy(*source), assigned;
  assigned.enabled() = true;
  assigned(small.view(), 0.0f);
  assigned = *source;
  source.reset();
  EXPECT_TRUE(access::map(assigned).width == 5 && access::map(copy).width == 12);
  for (object_tracking_2 *t : {&copy, &assigned}) {
    std::memcpy(&f.memory[0], before.data(), f.size);
    (*t)(f.view(), 0.0f);
    EXPECT_EQ(f.contents(), expected);
  }
}

TEST(chamfer_pass_2, first_line_and_column_never_chosen) {
  object_tracking_2 tracker;
  access::setup(tracker, 4, 4);
  Korvane::Sight::y_bitmap &map = access::map(tracker);
  for (int i = 1; i <= 4; ++i) R::line(map, 1)[i].y = R::line(map, i)[1].y = 9;
  int position[2] = {-1, -1};
  EXPECT_EQ(access::pass_2(tracker, position), 0);
  R::line(map, 4)[4].y = 3;  // the last block: its border neighbours bring it to 1
  EXPECT_EQ(access::pass_2(tracker, position), 1);
  EXPECT_TRUE(position[0] == 3 && position[1] == 3);
}

// The key from the settings (Cb, Cr, tolerance, and the top lane of the
// vector), with the worked numbers.
TEST(setup, key) {
  struct row {
    float r, g, b, tolerance;
    int cb, cr, t;
  } const rows[] = {{0.78431374f, 0.5372549f, 0.46666667f, 0.078431375f, 111, 157, 20},
                    {0, 0, 0, 0, 128, 128, 0}, {0, 0, 0, 1, 128, 128, 255},
                    {1, 0, 0, 7, 90, 240, 255}, {0, 0, 1, -0.5f, 240, 110, 0}};
  for (row const &r : rows) {
    object_tracking_2 t;
    t.color().r() = r.r, t.color().g() = r.g, t.color().b() = r.b, t.tolerance() = r.tolerance;
    access::setup(t, 1, 1);
    EXPECT_EQ(access::key(t), (std::array<int, 4>{r.cb, r.cr, r.t, r.cr << 16 | r.cb})) << r.r << r.g << r.b << r.tolerance;
  }
}

}  // namespace
