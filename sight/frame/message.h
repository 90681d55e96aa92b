// A video frame as a host's media library hands it over: its size, aspect
// ratio, field structure, pixel layout and the bitmaps of that layout.
//
// The message holds views: it neither owns nor frees the pixels. Every
// accessor has a const form for the operators and a form returning a
// reference, with which a host fills the record:
//   m.xres() = 1920; m.data_format() = video::format_422; m.ycbcr() = view;
#ifndef SIGHT_FRAME_MESSAGE_H_
#define SIGHT_FRAME_MESSAGE_H_

#include <sight/frame/bitmap.h>

namespace Tamarind::Parley::video {

// Field structure. The operators switch on the numbers; values other than 2
// and 3 (negative ones included) mean one whole picture.
enum e_field_type : int {
  field_progressive = 0,
  field_upper = 1,
  field_lower = 2,       // one field, the lower one
  field_interlaced = 3,  // both fields, line by line
};

// Pixel layout. Any other value is a layout the operators do not support.
enum e_data_format : int {
  format_422 = 0,        // Cb Y0 Cr Y1, in ycbcr()
  format_422_alt = 1,    // the same bytes, handled as format_422
  format_planar = 2,     // y(), cb(), cr(); chroma halved both ways
  format_ycbcra = 3,     // ycbcra()
  format_bgra = 4,       // bgra()
  format_y_cbcr = 5,     // y(), cbcr(); chroma halved both ways
};

class message {
 public:
  using ycbcr_bitmap = Rasters::bitmap_422<Rasters::pixel_ycbcr_u8>;
  using y_bitmap = Rasters::bitmap<Rasters::pixel_y_u8>;
  using cb_bitmap = Rasters::bitmap<Rasters::pixel_cb_u8>;
  using cr_bitmap = Rasters::bitmap<Rasters::pixel_cr_u8>;
  using cbcr_bitmap = Rasters::bitmap<Rasters::pixel_cbcr_u8>;
  using ycbcra_bitmap = Rasters::bitmap<Rasters::pixel_ycbcra_u8>;
  using bgra_bitmap = Rasters::bitmap<Rasters::pixel_bgra_u8>;

  int xres() const { return xres_; }
  int &xres() { return xres_; }
  int yres() const { return yres_; }
  int &yres() { return yres_; }
  float aspect_ratio() const { return aspect_ratio_; }
  float &aspect_ratio() { return aspect_ratio_; }
  e_field_type field_type() const { return field_type_; }
  e_field_type &field_type() { return field_type_; }
  e_data_format const &data_format() const { return data_format_; }
  e_data_format &data_format() { return data_format_; }

  ycbcr_bitmap const &ycbcr() const { return ycbcr_; }
  ycbcr_bitmap &ycbcr() { return ycbcr_; }
  y_bitmap const &y() const { return y_; }
  y_bitmap &y() { return y_; }
  cb_bitmap const &cb() const { return cb_; }
  cb_bitmap &cb() { return cb_; }
  cr_bitmap const &cr() const { return cr_; }
  cr_bitmap &cr() { return cr_; }
  cbcr_bitmap const &cbcr() const { return cbcr_; }
  cbcr_bitmap &cbcr() { return cbcr_; }
  ycbcra_bitmap const &ycbcra() const { return ycbcra_; }
  ycbcra_bitmap &ycbcra() { return ycbcra_; }
  bgra_bitmap const &bgra() const { return bgra_; }
  bgra_bitmap &bgra() { return bgra_; }

 private:
  int xres_ = 0;
  int yres_ = 0;
  float aspect_ratio_ = 0;
  e_field_type field_type_ = field_progressive;
  e_data_format data_format_ = format_422;
  ycbcr_bitmap ycbcr_{};
  y_bitmap y_{};
  cb_bitmap cb_{};
  cr_bitmap cr_{};
  cbcr_bitmap cbcr_{};
  ycbcra_bitmap ycbcra_{};
  bgra_bitmap bgra_{};
};

}  // namespace Tamarind::Parley::video

#endif  // SIGHT_FRAME_MESSAGE_H_
