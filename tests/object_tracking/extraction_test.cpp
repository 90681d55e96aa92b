// Region fill and choice of the winning region on hand-built grids, and a
// serpentine 4K frame run on a thread with a small stack.
#include <pthread.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tracker_access.h"

namespace Korvane::Sight {
namespace {

namespace R = Tamarind::Rasters;
using access = object_tracking_test_access;
using moments = object_tracking::moments_type;

// A grid from a picture: '.' empty, a digit d a cell of mass d * 100 whose
// centre is the middle of its 8 by 8 pixels (cell (i, j) of the picture is
// grid element (i + 1, j + 1)).
void paint(object_tracking &t, std::vector<std::string> const &rows) {
  int const cx = int(rows[0].size()), cy = int(rows.size());
  access::setup(t, cx * 8, cy * 8, cx, cy);
  for (int j = 0; j < cy; ++j)
    for (int i = 0; i < cx; ++i) {
      if (rows[j][i] == '.') continue;
      float const m = float(rows[j][i] - '0') * 100.0f, x = i * 8.0f + 4.0f, y = j * 8.0f + 4.0f;
      access::cell(t, i + 1, j + 1) = {m * x, m * y, m, 0.0f, m * x * x, m * y * y, m * x * y, 0.0f};
    }
}

struct extraction_case {
  char const *name;
  std::vector<std::string> grid;
  float crop_left, crop_top;  // fractions
  float mass;                 // of the winner, 0 for none
  float cx, cy;               // its centre in pixels
};

void PrintTo(extraction_case const &c, std::ostream *os) { *os << c.name; }

class extraction_test : public ::testing::TestWithParam<extraction_case> {};

TEST_P(extraction_test, keeps_the_heaviest_region_centred_in_the_cropping) {
  extraction_case const &c = GetParam();
  object_tracking t;
  t.cropping().left() = c.crop_left;
  t.cropping().top() = c.crop_top;
  paint(t, c.grid);
  moments best{};
  access::extract_object(t, best);
  ASSERT_EQ(best.mass, c.mass);
  if (c.mass != 0.0f) {
    EXPECT_FLOAT_EQ(best.sum_x / best.mass, c.cx);
    EXPECT_FLOAT_EQ(best.sum_y / best.mass, c.cy);
  }
  for (int j = 0; j < access::cells_y(t) + 2; ++j)
    for (int i = 0; i < access::cells_x(t) + 2; ++i) EXPECT_EQ(access::cell(t, i, j).mass, 0.0f) << i << "," << j;
}

INSTANTIATE_TEST_SUITE_P(
    tracker, extraction_test,
    ::testing::Values(
        extraction_case{"tie_later_wins", {"1...", "....", "...1"}, 0, 0, 100, 28, 20},
        extraction_case{"heavier_cropped_away_first", {"9...", "....", "...1"}, 0, 0.5f, 100, 28, 20},
        extraction_case{"heavier_cropped_away_last", {"...1", "....", "9..."}, 0.25f, 0, 100, 28, 4},
        extraction_case{"centre_on_bound_passes", {"1...", "....", "...."}, 0.125f, 0, 100, 4, 4},
        extraction_case{"heavier_first_stands", {"2...", "....", "...1"}, 0, 0, 200, 4, 4},
        extraction_case{"corner_touching_cells_join", {"1...", ".1..", "..1.", ".1.."}, 0, 0, 400, 12, 16},
        extraction_case{"ring_centre_on_empty_cell", {"111", "1.1", "111"}, 0, 0, 800, 12, 12},
        extraction_case{"u_shape_joins_from_below", {"1.1", "1.1", "111", "..."}, 0, 0, 700, 12, 13.142857f},
        extraction_case{"single_cell_last_row_and_column", {"...", "...", "..3"}, 0, 0, 300, 20, 20},
        extraction_case{"nothing", {"...", "..."}, 0, 0, 0, 0, 0}),
    [](auto const &info) { return std::string(info.param.name); });

// ---------------------------------------------------------------------------
// A one-cell-wide snake of key colour over a whole 3840 by 2160 BGRA frame:
// one region whose fill goes one level deeper for every cell. Run on a thread
// with a stack of 1 MiB, which a recursive fill would overflow.

struct snake_run {
  std::vector<R::pixel_bgra_u8> pixels;
  object_tracking_info info;
};

bool in_snake(int i, int j, int cells_y) {
  if (i % 2 == 0) return true;                      // columns
  return j == ((i / 2) % 2 == 0 ? cells_y - 1 : 0);  // joints, alternately at the bottom and the top
}

TEST(fill_depth_test, serpentine_4k_region_fits_a_1mib_thread_stack) {
  int const w = 3840, h = 2160, cx = w / 8, cy = h / 8;
  snake_run run;
  run.pixels.resize(std::size_t(w) * h);
  double sum_x = 0, sum_y = 0, count = 0;
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      bool const key = in_snake(x / 8, y / 8, cy);
      run.pixels[std::size_t(y) * w + x] = key ? R::pixel_bgra_u8{119, 137, 200, 255} : R::pixel_bgra_u8{0, 255, 0, 255};
    }
  for (int j = 0; j < cy; ++j)
    for (int i = 0; i < cx; ++i)
      if (in_snake(i, j, cy)) sum_x += i * 8 + 3.5, sum_y += j * 8 + 3.5, ++count;

  pthread_attr_t attr;
  pthread_attr_init(&attr);
  ASSERT_EQ(pthread_attr_setstacksize(&attr, 1 << 20), 0);
  pthread_t thread;
  auto body = [](void *p) -> void * {
    auto *r = static_cast<snake_run *>(p);
    object_tracking t;
    t.enabled() = true;
    R::bitmap<R::pixel_bgra_u8> frame{r->pixels.data(), 3840, 2160, 3840 * 4, false};
    t(r->info, frame, 0.0f);
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attr, body, &run), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attr);

  float const aspect = float(w) / float(h);
  ASSERT_EQ(run.info.object_detected(), 1);
  EXPECT_NEAR(run.info.centre().x, sum_x / count * 2 * aspect / w - aspect, 0.01);
  EXPECT_NEAR(run.info.centre().y, sum_y / count * 2 / h - 1, 0.01);
}

}  // namespace
}  // namespace Korvane::Sight
