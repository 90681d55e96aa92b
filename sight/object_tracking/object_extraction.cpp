// Object extraction: joins the non-empty cells of the grid that touch at an
// edge or a corner into regions and keeps the heaviest region whose centre of
// mass lies inside the cropping.
#include <cassert>

#include <sight/object_tracking/object_tracking.h>

namespace Korvane::Sight {

namespace R = Tamarind::Rasters;

namespace {

using moments_type = object_tracking::moments_type;

// Lane by lane, as two four-float vectors would add: the order of the
// additions of one float is the order of the calls.
inline void add(moments_type &sum, moments_type const &c) {
  sum.sum_x += c.sum_x;
  sum.sum_y += c.sum_y;
  sum.mass += c.mass;
  sum.spare_0 += c.spare_0;
  sum.sum_xx += c.sum_xx;
  sum.sum_yy += c.sum_yy;
  sum.sum_xy += c.sum_xy;
  sum.spare_1 += c.spare_1;
}

inline moments_type *step(moments_type *cell, std::ptrdiff_t bytes) {
  return reinterpret_cast<moments_type *>(reinterpret_cast<char *>(cell) + bytes);
}

}  // namespace

void object_tracking::extract_object(moments_type &best) {
  best.mass = 0.0f;
  for (int j = 1; j <= cells_y; ++j) {
    moments_type *const row = R::line(cells, j);
    for (int i = 1; i <= cells_x; ++i) {
      if (row[i].mass == 0.0f) continue;
      moments_type region;
      extract_object_impl(row + i, region);
      // Not ">=": of two regions of equal mass the later one stands.
      if (best.mass > region.mass) continue;
      float const inv = 1.0f / region.mass;
      float const cx = inv * region.sum_x;
      float const cy = inv * region.sum_y;
      // Only the centre is held to the cropping; a centre on a bound passes.
      if (cx < crop_x_min || cx > crop_x_max || cy < crop_y_min || cy > crop_y_max) continue;
      best = region;
    }
  }
  // A spread that does not grow with the mass keeps the second moments of
  // small regions positive. Added whether or not a region won.
  float const bias = moment_bias * 0.5f * moment_bias;
  best.sum_xx += bias;
  best.sum_yy += bias;
}

// A scan-line fill. At each level: take the cell, walk left and then right
// along its row while the cells are non-empty (emptying each one as it is
// added), which ends on the empty cells L and R; then, for every column from
// L to R, look at the cell above and then at the cell below, and add the
// whole fill from each non-empty one. Looking above and below L and R is
// what joins cells that touch only at a corner. The grid's empty border
// ends every walk, so no bounds are tested.
//
// The levels are kept on an explicit stack in the tracker's working memory
// rather than by recursion, in the same order of additions: a serpentine
// region needs one level per run, which on a 4K frame would be more than a
// thread's stack holds. Every level is a distinct run of a row, and runs of
// a row are separated by an empty cell, so fill_stack (sized with the grid)
// always has room; were it ever full, the cell would be left for the scan
// of extract_object to find as a region of its own.
void object_tracking::extract_object_impl(moments_type *cell, moments_type &region) const {
  std::ptrdiff_t const stride = cells.stride;
  fill_frame *const stack = fill_stack.data;
  int const capacity = fill_stack.width;
  int depth = 0;

  // Opens the level of `c`: its run is summed and emptied.
  auto open = [&](moments_type *c) {
    fill_frame &f = stack[depth++];
    f.sum = *c;
    c->mass = 0.0f;
    moments_type *l = c - 1;
    for (; l->mass != 0.0f; --l) {
      add(f.sum, *l);
      l->mass = 0.0f;
    }
    moments_type *r = c + 1;
    for (; r->mass != 0.0f; ++r) {
      add(f.sum, *r);
      r->mass = 0.0f;
    }
    f.column = l;
    f.last = r;
    f.below = false;
  };

  assert(capacity > 0);
  open(cell);
  for (;;) {
    fill_frame &f = stack[depth - 1];
    if (f.column > f.last) {
      // This level is complete: hand its sum to the level that opened it.
      if (--depth == 0) break;
      add(stack[depth - 1].sum, f.sum);
      continue;
    }
    moments_type *const next = step(f.column, f.below ? stride : -stride);
    if (f.below) ++f.column;
    f.below = !f.below;
    // The cell below is tested only after the fill from the cell above has
    // ended, so it sees what that fill emptied.
    if (next->mass != 0.0f && depth < capacity) open(next);
  }
  region = stack[0].sum;
}

}  // namespace Korvane::Sight
