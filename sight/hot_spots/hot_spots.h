// The hot-spot detector: tells for each of eight small rectangles of the
// picture whether something other than the backdrop's key colour covers it.
//
// For every enabled spot the operator takes the spot's rectangle, counts the
// chroma samples in it that lie strictly farther from the key colour than the
// tolerance, and reports the spot covered (1) when the count reaches
// min(threshold, samples in the rectangle), else 2. Only chroma is read,
// never luma. Every frame is judged by itself; `smoothness` only narrows the
// tolerance. The counts follow a fixed walk over each rectangle row (see
// extract_kernels.h) that may look a few samples right of the rectangle.
//
// Usage, from a host:
//   Korvane::Sight::hot_spots spots;
//   spots.enabled() = true;
//   for (int i = 0; i < spots.size_spots(); ++i) spots.spots(i).enabled() = true;
//   Korvane::Sight::hot_spots_info const info = spots(frame, 16.0f / 9.0f);
//   if (info.detected(3) == Korvane::Sight::object_found) ...
//
// The object must stand at a 16-byte aligned address (vector members). One
// object serves one thread at a time: every frame rewrites the derived members.
#ifndef SIGHT_HOT_SPOTS_HOT_SPOTS_H_
#define SIGHT_HOT_SPOTS_HOT_SPOTS_H_

#include <emmintrin.h>  // __m128i members

#include <glm/mat4x4.hpp>
#include <glm/vec2.hpp>

#include <sight/frame/export.h>
#include <sight/frame/message.h>
#include <sight/hot_spots/hot_spots_data.h>
#include <sight/hot_spots/hot_spots_info.h>
#include <sight/operator/layouts.h>
#include <sight/operator/object_detected.h>

namespace Korvane::Sight {

namespace detail {
struct hot_spots_kernels;
}

struct SIGHT_API hot_spots : hot_spots_data {
  // The settings' defaults; the derived members stay unset until a frame.
  hot_spots();
  hot_spots(hot_spots const &) = default;
  hot_spots &operator=(hot_spots const &) = default;

  // Frame entries. `aspect` is the display width over the height; 0 means
  // square pixels. The first form fills `info`, the second starts from a
  // zeroed result. Rows must be 16-byte aligned for the fast member; other
  // bitmaps are read by an unaligned member that gives the same counts.
  void operator()(hot_spots_info &info, bgra_bitmap const &frame, float aspect);
  void operator()(hot_spots_info &info, ycbcr_bitmap const &frame, float aspect);
  void operator()(hot_spots_info &info, ycbcra_bitmap const &frame, float aspect);
  // Planar frames: the geometry comes from the luma bitmap, whose pixels are
  // never read; chroma planes are half size in both directions.
  void operator()(hot_spots_info &info, y_bitmap const &y, cbcr_bitmap const &cbcr, float aspect);
  void operator()(hot_spots_info &info, y_bitmap const &y, cb_bitmap const &cb, cr_bitmap const &cr,
                  float aspect);
  // A message: the whole picture or one field of it (field type 3 and
  // `lower_field`), with the message's aspect ratio. A layout that is not
  // handled leaves all eight spots at 0.
  void operator()(hot_spots_info &info, Tamarind::Parley::video::message const *message,
                  bool lower_field);

  hot_spots_info const operator()(bgra_bitmap const &frame, float aspect);
  hot_spots_info const operator()(ycbcr_bitmap const &frame, float aspect);
  hot_spots_info const operator()(ycbcra_bitmap const &frame, float aspect);
  hot_spots_info const operator()(y_bitmap const &y, cbcr_bitmap const &cbcr, float aspect);
  hot_spots_info const operator()(y_bitmap const &y, cb_bitmap const &cb, cr_bitmap const &cr,
                                  float aspect);
  hot_spots_info const operator()(Tamarind::Parley::video::message const *message, bool lower_field);

  // Derived from the settings at the start of every processed frame, and
  // meaningless before the first. Key chroma in every 32-bit lane: Cb in
  // the low 16 bits, Cr in the high 16 bits.
  __m128i ref_cb_cr;
  // Squared key radius in 8-bit chroma levels, every lane.
  __m128i ref_tolerance_sq;
  // Copy of threshold().
  int ref_threshold;

 private:
  friend struct detail::hot_spots_kernels;

  // Key chroma, squared radius and threshold from the settings.
  void setup();

  // Counts the differing samples of one rectangle, given as (left, top) and
  // (right, bottom) in picture pixels, and decides the spot.
  e_object_detected extract(bgra_bitmap const &frame, glm::ivec2 left_top,
                            glm::ivec2 right_bottom) const;
  e_object_detected extract(ycbcr_bitmap const &frame, glm::ivec2 left_top,
                            glm::ivec2 right_bottom) const;
  e_object_detected extract(ycbcra_bitmap const &frame, glm::ivec2 left_top,
                            glm::ivec2 right_bottom) const;
  e_object_detected extract(cbcr_bitmap const &cbcr, glm::ivec2 left_top,
                            glm::ivec2 right_bottom) const;
  e_object_detected extract(cb_bitmap const &cb, cr_bitmap const &cr, glm::ivec2 left_top,
                            glm::ivec2 right_bottom) const;

  // The steps shared by the bitmap entries: nothing but a zeroed result when
  // disabled; else the set-up, the spot rectangles from the settings and the
  // picture size, and one `extract` call per enabled spot.
  template <class Extract>
  void detect(hot_spots_info &info, int width, int height, float aspect, Extract const &extract);

  // rgb_to_ycbcr_matrix(); the reference colour goes through 255 times it.
  static const glm::mat4 g_rgb_to_ycbcr;
  // hot_spots_rgb_cbcr, each row twice: integer chroma of a BGRA pixel.
  static const __m128i g_rgb_cbcr[2];
  // 0xFF000000 per lane: forces the alpha byte of a BGRA pixel to 255.
  static const __m128i g_0_0_0_255;
  // 0x00FF00FF per lane: keeps bytes 0 and 2 of each 32-bit group, which
  // turns 4:2:2 Cb Y Cr Y straight into the words Cb, Cr.
  static const __m128i g16_255;
  // All ones in lane 0 only: confines the one-sample test to one lane.
  static const __m128i g32_M1;
  // Byte gather 1, 2, 5, 6, 9, 10, 13, 14: Cb and Cr of four Y Cb Cr A pixels.
  static const __m128i g_shuffle_ycbcra;
  // 0x00010001 per lane; kept as part of the table set, read by no kernel.
  static const __m128i g16_1;
};

}  // namespace Korvane::Sight

#endif  // SIGHT_HOT_SPOTS_HOT_SPOTS_H_
