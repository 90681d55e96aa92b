// Region fill and choice of the winning region on hand-built grids, and a
// serpentine 4K frame run on a thread with a small stack.
#include <pthread.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tracker_access.h"

namespace Korvane::Sight {
namespace {

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

// A one-cell-wide snake over the whole grid of a 3840 by 2160 frame: one
// region whose fill would go one level deeper for every cell, run on a thread
// with a stack of 1 MiB, which a recursive fill overflows.
TEST(fill_depth_test, serpentine_4k_region_fits_a_1mib_thread_stack) {
  struct run {
    object_tracking t;
    moments best{};
  } r;
  int const cx = 480, cy = 270;
  access::setup(r.t, cx * 8, cy * 8, cx, cy);
  for (int j = 0; j < cy; ++j)
    for (int i = 0; i < cx; ++i)
      if (i % 2 == 0 || j == ((i / 2) % 2 == 0 ? cy - 1 : 0))  // columns, joints alternately at bottom and top
        access::cell(r.t, i + 1, j + 1) = {0, 0, 1, 0, 0, 0, 0, 0};
  pthread_attr_t attr;
  pthread_attr_init(&attr);
  ASSERT_EQ(pthread_attr_setstacksize(&attr, 1 << 20), 0);
  pthread_t thread;
  auto body = [](void *p) -> void * {
    auto *q = static_cast<run *>(p);
    access::extract_object(q->t, q->best);
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attr, body, &r), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attr);
  EXPECT_EQ(r.best.mass, float(cx / 2 * cy + cx / 2));
}

}  // namespace
}  // namespace Korvane::Sight
