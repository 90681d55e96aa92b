// Region fill and choice of the winning region, on hand-built grids, against
// a recursive fill written from the rule, and on a serpentine 4K frame run on
// a thread with a small stack.
#include <pthread.h>

#include <cstring>
#include <random>
#include <sstream>
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
// The order of the float additions: a recursive fill straight from the rule.

void add_model(moments &s, moments const &c) {
  float *a = &s.sum_x;
  float const *b = &c.sum_x;
  for (int k = 0; k < 8; ++k) a[k] += b[k];
}

moments *at(moments *cell, std::ptrdiff_t bytes) {
  return reinterpret_cast<moments *>(reinterpret_cast<char *>(cell) + bytes);
}

void fill_model(moments *cell, std::ptrdiff_t stride, moments &region) {
  moments sum = *cell;
  cell->mass = 0;
  moments *l = cell - 1;
  for (; l->mass != 0; --l) add_model(sum, *l), l->mass = 0;
  moments *r = cell + 1;
  for (; r->mass != 0; ++r) add_model(sum, *r), r->mass = 0;
  for (moments *c = l; c <= r; ++c)
    for (std::ptrdiff_t off : {-stride, stride})
      if (at(c, off)->mass != 0) {
        moments part;
        fill_model(at(c, off), stride, part);
        add_model(sum, part);
      }
  region = sum;
}

struct random_grid {
  int cells_x, cells_y;
  double density;
};

class fill_order_test : public ::testing::TestWithParam<random_grid> {};

TEST_P(fill_order_test, sums_every_region_in_the_order_of_the_recursive_fill) {
  random_grid const g = GetParam();
  std::mt19937 rng(g.cells_x * 1000 + g.cells_y);
  std::bernoulli_distribution full(g.density);
  std::uniform_real_distribution<float> value(0.001f, 1e6f);
  for (int round = 0; round < 5; ++round) {
    object_tracking t;
    access::setup(t, g.cells_x * 8, g.cells_y * 8, g.cells_x, g.cells_y);
    for (int j = 1; j <= g.cells_y; ++j)
      for (int i = 1; i <= g.cells_x; ++i)
        if (full(rng)) access::cell(t, i, j) = {value(rng), value(rng), value(rng), 0, value(rng), value(rng),
                                                value(rng), 0};
    R::bitmap<moments> const &grid = access::cells(t);
    std::vector<moments> copy(std::size_t(grid.stride / 32) * grid.height);
    std::memcpy(copy.data(), grid.data, copy.size() * sizeof(moments));
    for (int j = 1; j <= g.cells_y; ++j)
      for (int i = 1; i <= g.cells_x; ++i) {
        moments *const cell = &access::cell(t, i, j);
        moments *const model_cell = &copy[std::size_t(j) * (grid.stride / 32) + i];
        ASSERT_EQ(cell->mass, model_cell->mass);
        if (cell->mass == 0) continue;
        moments got, want;
        access::extract_object_impl(t, cell, got);
        fill_model(model_cell, grid.stride, want);
        ASSERT_EQ(std::memcmp(&got, &want, sizeof got), 0) << "region at " << i << "," << j;
      }
  }
}

INSTANTIATE_TEST_SUITE_P(tracker, fill_order_test,
                         ::testing::Values(random_grid{1, 1, 1.0}, random_grid{7, 3, 0.5}, random_grid{16, 16, 0.45},
                                           random_grid{40, 23, 0.6}, random_grid{64, 48, 0.7},
                                           random_grid{33, 65, 0.9}),
                         [](auto const &info) {
                           std::ostringstream name;
                           name << "w" << info.param.cells_x << "_h" << info.param.cells_y << "_p"
                                << int(info.param.density * 100);
                           return name.str();
                         });

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
