// Colour matching: the brightness, contrast, saturation and two chroma
// offsets of a procamp that bring one 4:2:2 picture to the luma and chroma
// statistics of another.
//
// The constructor does all the work; the object then only reports the five
// numbers. Luma is modelled by a gain and an offset, chroma by one gain about
// the middle of the range and an offset per channel, all in normalised units
// (a byte v stands for v / 255):
//
//   y' = contrast * (y + brightness)
//   cb' = saturation * (cb + u_offset - 0.5) + 0.5
//   cr' = saturation * (cr + v_offset - 0.5) + 0.5
//
// The search corrects `picture` with the settings found so far, measures it
// against `reference` and refines the settings, at most 20 times, stopping
// early once every step is within 0.001 of the identity. Degenerate input (a
// flat channel, an empty picture, a gain that swings instead of settling) is
// not checked: the settings then come back non-finite, as they stand.
//
// Usage, from a host:
//   Korvane::Sight::color_matching const match(camera_a, camera_b, false);
//   my_procamp.set(match.brightness(), match.contrast(), match.saturation(),
//                  match.u_offset(), match.v_offset());
//
// Objects are independent: several may be constructed on several threads at
// once. The two pictures are only read, and no reference to them is kept.
#ifndef SIGHT_COLOR_MATCHING_COLOR_MATCHING_H_
#define SIGHT_COLOR_MATCHING_COLOR_MATCHING_H_

#include <sight/frame/export.h>
#include <sight/operator/layouts.h>

namespace Korvane::Sight {

struct SIGHT_API color_matching {
  // Means and population variances of the three channels of one 4:2:2
  // picture, in normalised units (chroma unshifted: a neutral 128 gives about
  // 0.502). Every macro-pixel that starts before 2 * width bytes of a line is
  // counted, in single-precision sums in a fixed order, over width * height
  // pixels; an odd width thus counts its last macro-pixel whole. An empty
  // picture gives NaN in all six fields.
  struct SIGHT_API image_statistics {
    explicit image_statistics(ycbcr_bitmap const &picture);
    image_statistics(image_statistics const &other);
    image_statistics &operator=(image_statistics const &other);

    float y_mean;
    float cb_mean;
    float cr_mean;
    float y_variance;
    float cb_variance;
    float cr_variance;
  };

  // Finds the settings that carry `picture` to `reference`; the sizes need
  // not agree. `flag` is accepted and has no effect.
  color_matching(ycbcr_bitmap const &picture, ycbcr_bitmap const &reference, bool flag);
  color_matching(color_matching const &) = default;
  color_matching &operator=(color_matching const &) = default;

  // Luma offset, added before the gain, in normalised units.
  float brightness() const;
  // Luma gain.
  float contrast() const;
  // Gain of Cb and Cr about 0.5.
  float saturation() const;
  // Offsets of Cb and Cr, added before the gain, in normalised units.
  float u_offset() const;
  float v_offset() const;

 private:
  // Writes `source` corrected by the current settings into `destination`
  // (its data and stride only; the walk follows the source's size). An odd
  // width leaves each line's last macro-pixel of the destination unwritten.
  void apply_procamp(ycbcr_bitmap const &source, ycbcr_bitmap &destination);

  float brightness_;
  float contrast_;
  float saturation_;
  float u_offset_;
  float v_offset_;
};

}  // namespace Korvane::Sight

#endif  // SIGHT_COLOR_MATCHING_COLOR_MATCHING_H_
