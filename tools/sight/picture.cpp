#include "picture.h"

#include <stdexcept>

#include <sight/frame/bitmap.h>
#include <sight/frame/rasterize.h>

namespace sight_host {

namespace R = Tamarind::Rasters;

video::e_data_format layout_from_name(std::string const &name) {
  if (name == "bgra") return video::format_bgra;
  if (name == "ycbcra") return video::format_ycbcra;
  if (name == "y_cbcr") return video::format_y_cbcr;
  if (name == "planar") return video::format_planar;
  return video::format_422;
}

void picture::release() {
  R::release(bgra);
  R::release(ycbcra);
  R::release(ycbcr);
  R::release(y);
  R::release(cbcr);
  R::release(cb);
  R::release(cr);
}

bool picture::allocate(video::e_data_format f, int w, int h) {
  if (f != format) release();
  format = f;
  width = w;
  height = h;
  int const cw = (w + 1) / 2, ch = (h + 1) / 2;
  switch (f) {
    case video::format_bgra: return R::allocate(bgra, w, h);
    case video::format_ycbcra: return R::allocate(ycbcra, w, h);
    case video::format_y_cbcr: return R::allocate(y, w, h) && R::allocate(cbcr, cw, ch);
    case video::format_planar: return R::allocate(y, w, h) && R::allocate(cb, cw, ch) && R::allocate(cr, cw, ch);
    default: return R::allocate(ycbcr, w, h);
  }
}

video::message picture::message(bool interlaced) const {
  video::message m;
  m.xres() = width;
  m.yres() = height;
  m.aspect_ratio() = aspect;
  m.field_type() = interlaced ? video::field_interlaced : video::field_progressive;
  m.data_format() = format;
  // The message views the bitmaps and frees nothing.
  auto view = [](auto b) {
    b.owned = false;
    return b;
  };
  m.bgra() = view(bgra);
  m.ycbcra() = view(ycbcra);
  m.ycbcr() = view(ycbcr);
  m.y() = view(y);
  m.cbcr() = view(cbcr);
  m.cb() = view(cb);
  m.cr() = view(cr);
  return m;
}

void draw_line(video::field_views &v, int x0, int y0, int x1, int y1, unsigned char r, unsigned char g,
               unsigned char b) {
  int const p0[2] = {x0, y0}, p1[2] = {x1, y1};
  // BT.601 video range, the same matrix as the library's conversion back.
  int const yy = (66 * r + 129 * g + 25 * b + 128) / 256 + 16;
  int const u = (-38 * r - 74 * g + 112 * b + 128) / 256 + 128;
  int const w = (112 * r - 94 * g - 18 * b + 128) / 256 + 128;
  R::pixel_ycbcr_u8 const c{std::uint8_t(u), std::uint8_t(yy), std::uint8_t(w), std::uint8_t(yy)};
  switch (v.format) {
    case video::format_bgra: R::rasterize::line(v.bgra, p0, p1, R::pixel_bgra_u8{b, g, r, 255}); break;
    case video::format_ycbcra:
      R::rasterize::line(v.ycbcra, p0, p1, R::pixel_ycbcra_u8{c.y0, c.cb, c.cr, 255});
      break;
    case video::format_y_cbcr: R::rasterize::line(v.y, v.cbcr, p0, p1, c); break;
    case video::format_planar: R::rasterize::line(v.y, v.cb, v.cr, p0, p1, c); break;
    default: R::rasterize::line(v.ycbcr, p0, p1, c); break;
  }
}

}  // namespace sight_host
