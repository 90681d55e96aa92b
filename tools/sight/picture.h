// A frame in one of the library's five layouts, in bitmaps that it owns, and
// the ways a host sees it: as a message (the whole picture or its fields) and
// as plain bitmaps. Drawing helpers paint results onto it in any layout.
#ifndef SIGHT_TOOLS_PICTURE_H_
#define SIGHT_TOOLS_PICTURE_H_

#include <string>

#include <sight/frame/field_views.h>
#include <sight/frame/message.h>
#include <sight/operator/layouts.h>

namespace sight_host {

namespace video = Tamarind::Parley::video;
namespace S = Korvane::Sight;

// Layout names of the command line, as message data formats.
video::e_data_format layout_from_name(std::string const &name);

struct picture {
  picture() = default;
  picture(picture const &) = delete;
  picture &operator=(picture const &) = delete;
  ~picture() { release(); }

  // Frees every bitmap.
  void release();

  // (Re)allocates the bitmaps of `format` for width x height; chroma planes
  // take the rounded-up half sizes. False when memory runs out.
  bool allocate(video::e_data_format format, int width, int height);

  // A message on the bitmaps; interlaced messages are seen field by field.
  video::message message(bool interlaced) const;

  video::e_data_format format = video::format_422;
  int width = 0, height = 0;
  float aspect = 0;  // display width over height
  S::bgra_bitmap bgra{};
  S::ycbcra_bitmap ycbcra{};
  S::ycbcr_bitmap ycbcr{};
  S::y_bitmap y{};
  S::cbcr_bitmap cbcr{};
  S::cb_bitmap cb{};
  S::cr_bitmap cr{};
};

// Calls f with the bitmaps of the views' layout: (bgra), (ycbcra), (ycbcr),
// (y, cbcr) or (y, cb, cr).
template <class F>
decltype(auto) visit_planes(video::field_views &v, F &&f) {
  switch (v.format) {
    case video::format_bgra: return f(v.bgra);
    case video::format_ycbcra: return f(v.ycbcra);
    case video::format_y_cbcr: return f(v.y, v.cbcr);
    case video::format_planar: return f(v.y, v.cb, v.cr);
    default: return f(v.ycbcr);
  }
}

// A one-pixel line from (x0, y0) to (x1, y1) in pixels of the views, in an
// RGB colour given as bytes.
void draw_line(video::field_views &v, int x0, int y0, int x1, int y1, unsigned char r, unsigned char g,
               unsigned char b);

// A point of picture coordinates (origin in the middle, y from -1 at the top
// to +1 at the bottom, x over plus and minus `aspect`) in pixels of a
// width x height picture.
inline void to_pixels(float x, float y, float aspect, int width, int height, int &px, int &py) {
  px = int((x + aspect) / (2 * aspect) * float(width));
  py = int((y + 1) * 0.5f * float(height));
}

}  // namespace sight_host

#endif  // SIGHT_TOOLS_PICTURE_H_
