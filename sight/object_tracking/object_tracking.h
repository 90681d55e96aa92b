// The colour-key tracker: finds, in each frame, the heaviest blob of the key
// colour whose centre lies inside the cropping and reports it as a box.
//
// A host constructs one tracker, sets `enabled` and the other settings of
// object_tracking_data on it, and calls it once per frame or field:
//
//   Korvane::Sight::object_tracking tracker;
//   tracker.enabled() = true;
//   Korvane::Sight::object_tracking_info info = tracker(frame, 16.0f / 9.0f);
//   if (info.object_detected() == 1) place_overlay(info(16.0f / 9.0f));
//
// The work of a frame is one pass over the chroma samples, which reduces the
// frame to a grid of cells of 8 by 8 samples with their weighted moments,
// then one pass over the grid, which joins touching non-empty cells into
// regions, and a fit of the winning region's moments to a box.
//
// A tracker must stand at a 16-byte aligned address (its key vectors are
// read as 128-bit lanes); its alignment says so. It serves one thread at a
// time. With bit 0 of `preview` set the frame, though passed as a const
// reference, is painted with the key matte, and with bit 1 the cropping is
// drawn on it: the caller then passes memory that may be written.
#ifndef SIGHT_OBJECT_TRACKING_OBJECT_TRACKING_H_
#define SIGHT_OBJECT_TRACKING_OBJECT_TRACKING_H_

#include <cstdint>

#include <glm/mat4x4.hpp>
#include <glm/vec2.hpp>

#include <sight/frame/bitmap.h>
#include <sight/frame/export.h>
#include <sight/frame/message.h>
#include <sight/operator/layouts.h>
#include <sight/object_tracking/object_tracking_data.h>
#include <sight/object_tracking/object_tracking_info.h>

namespace Korvane::Sight {

struct SIGHT_API object_tracking : object_tracking_data {
  // Weighted moments of a cell or a region, positions in pixels of the frame
  // (or, after scaling, in the coordinates of the result). The first four
  // floats travel as one vector and the last four as another; an empty cell
  // (mass 0) has its first four zero and its last four undefined.
  struct alignas(16) moments_type {
    float sum_x;
    float sum_y;
    float mass;
    float spare_0;  // always 0
    float sum_xx;
    float sum_yy;
    float sum_xy;
    float spare_1;  // always 0
  };

  // rgb_to_ycbcr_matrix(): (R, G, B, 1) in 0..1 to (Y, Cb, Cr, 1) in 0..1.
  static glm::mat4 const g_rgb_to_ycbcr;

  // All settings at their defaults (enabled false), no grid yet.
  // `moment_bias` adds moment_bias * 0.5 * moment_bias to both second
  // moments of the winning region, so small regions keep a positive spread.
  explicit object_tracking(float moment_bias);
  object_tracking();  // moment_bias 8
  // Copies everything, the grid with its contents into new memory.
  object_tracking(object_tracking const &other);
  // Copies everything; a tracker that already has a grid keeps its memory
  // and size and takes only the part of the other's grid that fits.
  object_tracking &operator=(object_tracking const &other);
  ~object_tracking();

  // Frame entries. `aspect_ratio` is the displayed width over height of the
  // picture; 0 means unknown and takes width / height of the first bitmap.
  // Cells: 8 by 8 pixels (BGRA, YCbCrA), 16 by 8 (4:2:2), 16 by 16 (planes).
  void operator()(object_tracking_info &info, bgra_bitmap const &frame,
                  float aspect_ratio);
  object_tracking_info const operator()(bgra_bitmap const &frame,
                                        float aspect_ratio);
  void operator()(object_tracking_info &info,
                  ycbcra_bitmap const &frame, float aspect_ratio);
  object_tracking_info const operator()(ycbcra_bitmap const &frame,
                                        float aspect_ratio);
  void operator()(object_tracking_info &info,
                  ycbcr_bitmap const &frame, float aspect_ratio);
  object_tracking_info const operator()(
      ycbcr_bitmap const &frame, float aspect_ratio);
  void operator()(object_tracking_info &info, y_bitmap const &y,
                  cbcr_bitmap const &cbcr, float aspect_ratio);
  object_tracking_info const operator()(y_bitmap const &y,
                                        cbcr_bitmap const &cbcr,
                                        float aspect_ratio);
  void operator()(object_tracking_info &info, y_bitmap const &y,
                  cb_bitmap const &cb,
                  cr_bitmap const &cr, float aspect_ratio);
  object_tracking_info const operator()(y_bitmap const &y,
                                        cb_bitmap const &cb,
                                        cr_bitmap const &cr,
                                        float aspect_ratio);
  // A message: the whole picture or, for an interlaced one, the field that
  // `lower_field` selects. The lower field (also a message of field type 2)
  // gets 1 / H added to centre.y, H the height of the picture seen, whatever
  // was found. An unknown data format leaves the result zero but for that.
  void operator()(object_tracking_info &info, Tamarind::Parley::video::message const *message, bool lower_field);
  object_tracking_info const operator()(Tamarind::Parley::video::message const *message, bool lower_field);

 private:
  friend struct object_tracking_test_access;

  // One level of the region fill, kept on an explicit stack so that a
  // serpentine region cannot overflow the thread's stack.
  struct alignas(16) fill_frame {
    moments_type sum;      // running sum of this level
    moments_type *column;  // next column of the row above/below to look at
    moments_type *last;    // R: the empty cell that ends the run
    bool below;            // the row above of `column` has been looked at
  };

  // Bitmap entries after the enabled test: the pipeline of one frame.
  template <class... Planes>
  void track(object_tracking_info &info, int cells_x, int cells_y, float aspect_ratio, Planes const &...planes);

  void setup(int width, int height, int cells_x, int cells_y);
  void generate_moments(bgra_bitmap const &frame);
  void generate_moments(ycbcra_bitmap const &frame);
  void generate_moments(ycbcr_bitmap const &frame);
  void generate_moments(y_bitmap const &y,
                        cbcr_bitmap const &cbcr);
  void generate_moments(y_bitmap const &y,
                        cb_bitmap const &cb,
                        cr_bitmap const &cr);
  void extract_object(moments_type &best);
  void extract_object_impl(moments_type *cell, moments_type &region) const;
  void scale_object(moments_type &m, int width, int height, float aspect_ratio) const;
  void fit_object(object_tracking_info &info, moments_type const &m);
  static void symmetric_eigen_2x2(float a, float b, float d, float &l1, float &l2, glm::vec2 &e1, glm::vec2 &e2);
  void display_outlines(bgra_bitmap &frame, object_tracking_info info,
                        float aspect_ratio) const;
  void display_outlines(ycbcra_bitmap &frame,
                        object_tracking_info info, float aspect_ratio) const;
  void display_outlines(ycbcr_bitmap &frame,
                        object_tracking_info info, float aspect_ratio) const;
  void display_outlines(y_bitmap &y,
                        cbcr_bitmap &cbcr, object_tracking_info info,
                        float aspect_ratio) const;
  void display_outlines(y_bitmap &y,
                        cb_bitmap &cb,
                        cr_bitmap &cr, object_tracking_info info,
                        float aspect_ratio) const;

  std::int32_t cells_x;  // cells across, without the border
  std::int32_t cells_y;  // cells down, without the border
  // cells_x + 2 by cells_y + 2; the one-cell border stays zero.
  Tamarind::Rasters::bitmap<moments_type> cells;
  glm::vec2 previous_x_axis;  // x_axis of the last fit, or (1, 0)
  alignas(16) std::uint16_t key_cbcr[8];    // Cb, Cr, Cb, Cr, ...
  alignas(16) std::uint16_t key_scale[8];   // slope of the weight, in 1/256
  alignas(16) std::uint16_t key_offset[8];  // weight at distance 0
  float minimum_mass;
  float moment_bias;
  float crop_x_min, crop_x_max, crop_y_min, crop_y_max;  // in pixels
  // Working memory of the region fill, allocated with the grid: enough
  // levels for any region the grid can hold.
  Tamarind::Rasters::bitmap<fill_frame> fill_stack;
};

}  // namespace Korvane::Sight

#endif  // SIGHT_OBJECT_TRACKING_OBJECT_TRACKING_H_
