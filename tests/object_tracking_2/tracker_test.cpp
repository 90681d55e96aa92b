// The whole frame call on crafted and random scenes: the star drawn into the
// frame and the picture written, each against what the model's block search
// and rays give, drawn with the same lines; plus the disabled tracker,
// copies, the backward pass's first line and column, and the key.
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
#include <sight/object_tracking_2/object_tracking_2.h>

#include "object_tracking_2/chamfer_model.h"
#include "object_tracking_2/test_frame.h"

namespace Korvane::Sight {
struct object_tracking_2_test_access {
  static void setup(object_tracking_2 &t, int w, int h) { t.setup(w, h); }
  static std::array<int, 3> key(object_tracking_2 const &t) { return {t.key_cb, t.key_cr, t.key_tolerance}; }
  static __m128i key_cbcr(object_tracking_2 const &t) { return t.key_cbcr; }
  static y_bitmap &map(object_tracking_2 &t) { return t.chamfer_map; }
  static int pass_2(object_tracking_2 &t, int *position) { return t.chamfer_pass_2(position); }
  static int const (&outline())[256][2] { return object_tracking_2::g_outline; }
};
}  // namespace Korvane::Sight

namespace {

namespace R = Tamarind::Rasters;
namespace fs = std::filesystem;
namespace cm = chamfer_model;
using access = Korvane::Sight::object_tracking_2_test_access;
using Korvane::Sight::object_tracking_2;
using chamfer_test::test_frame;

cm::key const default_key{111, 157, 20};
char const *const dump_path = "d:\\temp\\track2.png";

enum kind { blocks, full, random_blocks };

struct scene {
  char const *name;
  int width, height;
  kind k;
  std::vector<std::array<int, 4>> regions;  // in blocks: x, y, across, down
  int m, bx, by;                            // m 0: nothing drawn; -1: what the model finds
};
void PrintTo(scene const &s, std::ostream *os) { *os << s.name; }

// Key-coloured blocks (within 4 of the key per pair) on a backdrop far from it.
void paint(test_frame &f, scene const &s) {
  std::mt19937 rng(7);
  std::vector<bool> on(std::size_t((f.width / 16 + 1) * (f.height / 8 + 1)), s.k == full);
  for (std::size_t i = 0; s.k == random_blocks && i < on.size(); ++i) on[i] = rng() % 8 != 0;
  for (auto const &r : s.regions)
    for (int y = r[1]; y < r[1] + r[3]; ++y)
      for (int x = r[0]; x < r[0] + r[2]; ++x) on[std::size_t(y * (f.width / 16 + 1) + x)] = true;
  for (std::size_t i = 0; i < f.size; ++i) f.memory[i] = std::uint8_t(rng());
  for (int y = 0; y < f.height; ++y)
    for (int x = 0; x < f.width; x += 2)
      if (on[std::size_t(y / 8 * (f.width / 16 + 1) + x / 16)])
        f.set(x, y, default_key.cb + int(rng() % 3) - 1, default_key.cr + int(rng() % 3) - 1);
      else
        f.set(x, y, 200, 40);
}

// The frame as the call must leave it: the model's star drawn on it.
std::vector<std::uint8_t> drawn(test_frame &f, scene const &s, bool &draws) {
  std::vector<std::uint8_t> const before = f.contents();
  int m = s.m, bx = s.bx, by = s.by;
  if (m < 0) {
    std::vector<int> map = cm::pass_1(f.model(), default_key);
    m = cm::pass_2(map, f.width / 16 + 2, f.height / 8 + 2, bx, by);
  }
  draws = m >= 2;
  if (!draws) return before;
  cm::star const star = cm::rays(f.model(), default_key, m, bx, by);
  Korvane::Sight::ycbcr_bitmap v = f.view();
  for (auto const &end : star.ends) R::rasterize::line(v, star.centre, end, {128, 255, 128, 255});
  std::vector<std::uint8_t> after = f.contents();
  std::memcpy(f.memory, before.data(), f.size);
  return after;
}

// Each test runs in a working folder of its own, where the picture lands.
class in_temp_folder : public ::testing::Test {
 protected:
  void SetUp() override {
    home = fs::current_path();
    folder = fs::temp_directory_path() / ("chamfer_" + std::to_string(std::random_device{}()));
    fs::create_directory(folder);
    fs::current_path(folder);
  }
  void TearDown() override {
    fs::current_path(home);
    fs::remove_all(folder);
  }
  fs::path home, folder;
};

class scene_test : public in_temp_folder, public ::testing::WithParamInterface<std::tuple<scene, bool>> {};

TEST_P(scene_test, star_and_picture) {
  auto const &[s, aligned] = GetParam();
  test_frame f(s.width, s.height, 0, aligned ? 0 : 1, aligned);
  paint(f, s);
  bool draws = false;
  std::vector<std::uint8_t> const expected = drawn(f, s, draws);
  object_tracking_2 tracker;
  tracker.enabled() = true;
  tracker(f.view(), 0.0f);
  ASSERT_EQ(f.contents(), expected);
  ASSERT_EQ(fs::exists(dump_path), draws);
  if (!draws) return;

  // The picture decodes to the drawn frame in BGRA.
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  ASSERT_TRUE(png_image_begin_read_from_file(&image, dump_path));
  image.format = PNG_FORMAT_BGRA;
  std::vector<R::pixel_bgra_u8> picture(std::size_t(s.width * s.height)), want(picture.size());
  ASSERT_TRUE(png_image_finish_read(&image, nullptr, picture.data(), 0, nullptr));
  ASSERT_EQ(int(image.width), s.width);
  ASSERT_EQ(int(image.height), s.height);
  for (int y = 0; y < s.height; ++y)
    R::convert_line(R::line(f.view(), y), &want[std::size_t(y * s.width)], s.width);
  EXPECT_EQ(0, std::memcmp(picture.data(), want.data(), picture.size() * 4));

  // All key: every ray ends on a limit of the frame, or one line past it
  // where x met its limit first and the search stopped at the frame's edge.
  for (auto const &end : access::outline()) {
    if (s.k != full) break;
    EXPECT_TRUE(end[0] == 0 || end[0] == s.width - 1 || (end[1] >= -1 && end[1] <= 0) ||
                  (end[1] >= s.height - 1 && end[1] <= s.height))
        << end[0] << "," << end[1];
  }
}

std::vector<scene> const scenes = {
    {"square3", 160, 80, blocks, {{3, 3, 3, 3}}, 2, 4, 4},
    {"square2", 160, 80, blocks, {{3, 3, 2, 2}}, 0, 0, 0},
    {"bar_across", 160, 80, blocks, {{1, 4, 8, 1}}, 0, 0, 0},
    {"bar_down", 160, 80, blocks, {{4, 1, 1, 8}}, 0, 0, 0},
    {"tie_rightmost", 160, 80, blocks, {{1, 3, 3, 3}, {5, 3, 3, 3}}, 2, 6, 4},
    {"tie_lowest", 160, 80, blocks, {{5, 1, 3, 3}, {1, 5, 3, 3}}, 2, 2, 6},
    {"corner", 100, 60, blocks, {{0, 0, 4, 7}}, -1, 0, 0},
    {"full_47x24", 47, 24, full, {}, 0, 0, 0},
    {"full_48x23", 48, 23, full, {}, 0, 0, 0},
    {"full_48x24", 48, 24, full, {}, 2, 1, 1},
    {"full_203x61", 203, 61, full, {}, -1, 0, 0},
    {"random", 320, 240, random_blocks, {}, -1, 0, 0},
};

INSTANTIATE_TEST_SUITE_P(scenes, scene_test, ::testing::Combine(::testing::ValuesIn(scenes), ::testing::Bool()),
                         [](auto const &info) {
                           return std::string(std::get<0>(info.param).name) +
                                  (std::get<1>(info.param) ? "_aligned" : "_unaligned");
                         });

TEST_F(in_temp_folder, disabled_touches_nothing) {
  test_frame f(160, 80);
  paint(f, {"", 160, 80, full, {}, 0, 0, 0});
  std::vector<std::uint8_t> const before = f.contents();
  object_tracking_2 tracker;
  tracker(f.view(), 0.0f);
  EXPECT_EQ(f.contents(), before);
  EXPECT_FALSE(fs::exists(dump_path));
  EXPECT_EQ(access::map(tracker).data, nullptr);
}

// A copy has cells of its own; an assignment keeps the size of a map that
// exists until the next frame's set-up.
TEST_F(in_temp_folder, copies_outlive_source) {
  scene const s{"", 160, 80, blocks, {{3, 3, 3, 3}}, 2, 4, 4};
  test_frame f(160, 80);
  paint(f, s);
  bool draws = false;
  std::vector<std::uint8_t> const expected = drawn(f, s, draws), before = f.contents();
  auto source = std::make_unique<object_tracking_2>();
  source->enabled() = true;
  (*source)(f.view(), 0.0f);
  object_tracking_2 copy(*source), assigned;
  assigned.enabled() = true;
  test_frame small(48, 24);
  assigned(small.view(), 0.0f);
  assigned = *source;
  source.reset();
  EXPECT_EQ(access::map(assigned).width, 5);
  EXPECT_EQ(access::map(copy).width, 12);
  for (object_tracking_2 *t : {&copy, &assigned}) {
    std::memcpy(f.memory, before.data(), f.size);
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
  EXPECT_EQ(position[0], 3);
  EXPECT_EQ(position[1], 3);
}

// The key from the settings, with the worked numbers; and the direction
// table's quarter turns.
TEST(setup, key_and_directions) {
  struct row {
    float r, g, b, tolerance;
    std::array<int, 3> key;
  } const rows[] = {{0.78431374f, 0.5372549f, 0.46666667f, 0.078431375f, {111, 157, 20}},
                    {0, 0, 0, 0, {128, 128, 0}},
                    {0, 0, 0, 1, {128, 128, 255}},
                    {1, 0, 0, 7, {90, 240, 255}},
                    {0, 0, 1, -0.5f, {240, 110, 0}}};
  for (row const &r : rows) {
    object_tracking_2 t;
    t.color().r() = r.r, t.color().g() = r.g, t.color().b() = r.b, t.tolerance() = r.tolerance;
    access::setup(t, 1, 1);
    EXPECT_EQ(access::key(t), r.key) << r.r << " " << r.g << " " << r.b << " " << r.tolerance;
    alignas(16) int lanes[4];
    _mm_store_si128(reinterpret_cast<__m128i *>(lanes), access::key_cbcr(t));
    for (int lane : lanes) EXPECT_EQ(lane, r.key[1] << 16 | r.key[0]);
  }
  int const(&d)[256][2] = object_tracking_2::g_directions;
  EXPECT_TRUE(d[0][0] == 65536 && d[0][1] == 0 && d[64][0] == 0 && d[64][1] == 65536);
  EXPECT_TRUE(d[128][0] == -65536 && d[128][1] == 0 && d[192][0] == 0 && d[192][1] == -65536);
}

}  // namespace
