// The chamfer tracker: finds, in each 4:2:2 frame, the most interior block of
// a region of the key colour, measures the region from there by 256 rays and
// draws them into the frame as a star, which it also writes to a picture.
//
//   Korvane::Sight::object_tracking_2 tracker;
//   tracker.enabled() = true;
//   tracker(frame, 16.0f / 9.0f);  // draws on `frame` when it finds a region
//
// A block is 16 pixels by 8 lines; it matches when the mean of |dCb| + |dCr|
// over its 64 pixel pairs lies below the tolerance. A chessboard distance
// transform on the blocks (one forward pass while the frame is read, one
// backward pass over the map) gives each matching block its distance m from
// the nearest block that does not match, the frame's edge counting as such.
// Where m is 2 or more, rays go out from that block in steps of about 10 m
// pixels until they leave the region, and are bisected back to its edge
// within one pixel.
//
// Output: every frame with m of 2 or more is drawn on in place, though it is
// passed as a const reference, so the caller passes memory that may be
// written; and the drawn frame is written to the relative path
// "d:\temp\track2.png" (a PNG, BGRA or failing that BGR). Nothing is reported
// through object_tracking_2_info. Luma plays no part.
//
// Threads: an object serves one thread at a time, and g_directions and
// g_outline are shared by every object of the process, so two objects may
// not run a frame that draws at the same time.
#ifndef SIGHT_OBJECT_TRACKING_2_OBJECT_TRACKING_2_H_
#define SIGHT_OBJECT_TRACKING_2_OBJECT_TRACKING_2_H_

#include <emmintrin.h>  // __m128i

#include <glm/mat4x4.hpp>

#include <sight/frame/export.h>
#include <sight/object_tracking_2/object_tracking_2_data.h>
#include <sight/object_tracking_2/object_tracking_2_info.h>
#include <sight/operator/layouts.h>

namespace Korvane::Sight {

struct SIGHT_API object_tracking_2 : object_tracking_2_data {
  static int const no_directions = 256;
  // Unit vectors (cos, sin) of the angles 2 pi i / 256 in 16.16 fixed point,
  // filled by the first set-up of the process and then left alone.
  static int g_directions[no_directions][2];
  // 0x00FF00FF in each 32-bit lane: keeps the chroma bytes of 4:2:2 pairs.
  static __m128i const g_255;
  // rgb_to_ycbcr_matrix(): (R, G, B, 1) in 0..1 to (Y, Cb, Cr, 1) in 0..1.
  static glm::mat4 const g_rgb_to_ycbcr;

  // Settings at their defaults (enabled false), no map yet.
  object_tracking_2();
  // Copies the settings and the key, and the map into memory of its own.
  object_tracking_2(object_tracking_2 const &other);
  // Copies the settings and the key; a map that exists keeps its memory and
  // size (the next frame's set-up puts the size right) and takes the cells
  // that both maps have; an empty one is allocated to the other's size.
  object_tracking_2 &operator=(object_tracking_2 const &other);
  ~object_tracking_2();

  // The work of a frame. `info` and the float (the aspect ratio in the other
  // operators) are neither read nor written. Any data and stride work; the
  // block scan takes aligned loads when both are multiples of 16.
  void operator()(object_tracking_2_info &info, ycbcr_bitmap const &frame, float);
  object_tracking_2_info const operator()(ycbcr_bitmap const &frame, float);

 private:
  friend struct object_tracking_2_test_access;

  // End points of the current frame's rays, in pixels of the frame.
  static int g_outline[no_directions][2];

  // Prepares a frame of `width` by `height` blocks: the key from the
  // settings, the map's size (a new map is cleared) and the directions.
  void setup(int width, int height);
  // Backward pass of the distance transform over the map and the search for
  // its maximum: returns it and writes its block (x, y) to `position`. Of
  // equal cells the lowest, then the rightmost wins. The first line and
  // column of blocks are not visited and never chosen.
  int chamfer_pass_2(int *const position);
  // The frame call up to the picture: set-up, both passes, the rays and the
  // star. True when it drew, that is when the deepest block's m is 2 or more.
  bool draw_star(ycbcr_bitmap const &frame);

  __m128i key_cbcr;   // (key_cr << 16) | key_cb in every lane
  int key_cb;         // 8-bit chroma of the key colour
  int key_cr;
  int key_tolerance;  // tolerance on the 8-bit scale
  // One byte a block with a border of one cell that stays 0: 0 outside the
  // object, else the distance in blocks to the nearest cell outside it.
  y_bitmap chamfer_map;
};

}  // namespace Korvane::Sight

#endif  // SIGHT_OBJECT_TRACKING_2_OBJECT_TRACKING_2_H_
