// Object extraction: joins the non-empty cells of the grid that touch at an
// edge or a corner into regions and keeps the heaviest region whose centre of
// mass lies inside the cropping.
#include <cassert>

#include <xmmintrin.h>

#include <sight/object_tracking/object_tracking.h>

namespace Korvane::Sight {

namespace R = Tamarind::Rasters;

namespace {

using moments_type = object_tracking::moments_type;

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
//
// The level being worked on lives in registers (its sum as two four-float
// vectors, added lane by lane exactly as the eight floats one by one) and
// goes to the stack only while a level above it is open, so the walk along
// the rows carries no dependency through memory.
void object_tracking::extract_object_impl(moments_type *cell, moments_type &region) const {
  std::ptrdiff_t const stride = cells.stride;
  fill_frame *const stack = fill_stack.data;
  int const capacity = fill_stack.width;
  int depth = 1;  // levels open, the one in registers included

  __m128 lo, hi;         // running sum of the level: sum_x .. spare_0, sum_xx .. spare_1
  moments_type *column;  // next column whose cells above and below are to be looked at
  moments_type *last;    // R
  bool below;            // the cell above `column` has been looked at

  auto const first = [](moments_type const *c) { return _mm_load_ps(&c->sum_x); };
  auto const second = [](moments_type const *c) { return _mm_load_ps(&c->sum_xx); };
  // Opens the level of `c` in the registers: its run is summed and emptied.
  auto const open = [&](moments_type *c) {
    lo = first(c);
    hi = second(c);
    c->mass = 0.0f;
    moments_type *l = c - 1;
    for (; l->mass != 0.0f; --l) {
      lo = _mm_add_ps(lo, first(l));
      hi = _mm_add_ps(hi, second(l));
      l->mass = 0.0f;
    }
    moments_type *r = c + 1;
    for (; r->mass != 0.0f; ++r) {
      lo = _mm_add_ps(lo, first(r));
      hi = _mm_add_ps(hi, second(r));
      r->mass = 0.0f;
    }
    column = l;
    last = r;
    below = false;
  };
  // Keeps the level in the registers on the stack and opens `c` above it.
  auto const push = [&](moments_type *c) {
    fill_frame &f = stack[depth - 1];
    _mm_store_ps(&f.sum.sum_x, lo);
    _mm_store_ps(&f.sum.sum_xx, hi);
    f.column = column;
    f.last = last;
    f.below = below;
    ++depth;
    open(c);
  };

  assert(capacity > 0);
  open(cell);
  for (;;) {
    // The cell below is tested only after the fill from the cell above has
    // ended, so it sees what that fill emptied.
    if (below) {
      moments_type *const down = step(column, stride);
      ++column;
      below = false;
      if (down->mass != 0.0f && depth < capacity) {
        push(down);
        continue;
      }
    }
    moments_type *next = nullptr;
    for (; column <= last; ++column) {
      moments_type *const up = step(column, -stride);
      if (up->mass != 0.0f && depth < capacity) {
        below = true;
        next = up;
        break;
      }
      moments_type *const down = step(column, stride);
      if (down->mass != 0.0f && depth < capacity) {
        ++column;
        next = down;
        break;
      }
    }
    if (next != nullptr) {
      push(next);
      continue;
    }
    // This level is complete: hand its sum to the level that opened it.
    if (--depth == 0) break;
    fill_frame const &f = stack[depth - 1];
    lo = _mm_add_ps(_mm_load_ps(&f.sum.sum_x), lo);
    hi = _mm_add_ps(_mm_load_ps(&f.sum.sum_xx), hi);
    column = f.column;
    last = f.last;
    below = f.below;
  }
  _mm_store_ps(&region.sum_x, lo);
  _mm_store_ps(&region.sum_xx, hi);
}

}  // namespace Korvane::Sight
