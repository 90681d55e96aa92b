// Views on the picture that an operator sees in a message: the whole frame,
// or one field of an interlaced frame.
//
//   field_type 3: H = yres / 2 (an odd last line is dropped), every second
//                 line from line `first` (1 for the lower field, else 0);
//   field_type 2: the message is the lower field itself: H = yres, and
//                 lower_field is forced to true;
//   otherwise:    the whole picture, H = yres, lower_field as given.
//
// Each view's data is the message bitmap's data plus first * stride, and its
// stride the message's stride times the line step. A message stride of 0
// stays 0 after the product and becomes the tightly packed default of the
// plane, which is not multiplied by the step. Only the bitmaps of the
// message's layout are viewed; the others stay empty, and so does a view of
// a null bitmap. Sizes come from xres() and yres(), never from the bitmaps.
#ifndef SIGHT_FRAME_FIELD_VIEWS_H_
#define SIGHT_FRAME_FIELD_VIEWS_H_

#include <sight/frame/bitmap.h>
#include <sight/frame/message.h>

namespace Tamarind::Parley::video {

struct field_views {
  int height = 0;            // H, the height of the picture seen
  bool lower_field = false;  // after the forcing for field type 2
  int first = 0;             // first line of the message used
  int step = 1;              // line step in the message
  e_data_format format = format_422;

  message::ycbcr_bitmap ycbcr{};
  message::y_bitmap y{};
  message::cb_bitmap cb{};
  message::cr_bitmap cr{};
  message::cbcr_bitmap cbcr{};
  message::ycbcra_bitmap ycbcra{};
  message::bgra_bitmap bgra{};

  static field_views make(message const &m, bool lower_field) {
    field_views v;
    v.format = m.data_format();
    v.height = m.yres();
    v.lower_field = lower_field;
    if (m.field_type() == field_interlaced) {
      v.height = m.yres() / 2;
      v.step = 2;
      v.first = lower_field ? 1 : 0;
    } else if (m.field_type() == field_lower) {
      v.lower_field = true;
    }
    int const w = m.xres(), h = v.height;
    switch (v.format) {
      case format_422:
      case format_422_alt:
        v.ycbcr = v.view(m.ycbcr(), w, h, (w + 1) / 2 * 4);
        break;
      case format_planar:
        v.y = v.view(m.y(), w, h, w);
        v.cb = v.view(m.cb(), w / 2, h / 2, w / 2);
        v.cr = v.view(m.cr(), w / 2, h / 2, w / 2);
        break;
      case format_ycbcra:
        v.ycbcra = v.view(m.ycbcra(), w, h, w * 4);
        break;
      case format_bgra:
        v.bgra = v.view(m.bgra(), w, h, w * 4);
        break;
      case format_y_cbcr:
        v.y = v.view(m.y(), w, h, w);
        v.cbcr = v.view(m.cbcr(), w / 2, h / 2, w / 2 * 2);
        break;
    }
    return v;
  }

  // True when the message's layout is one the operators support.
  bool supported() const { return format >= format_422 && format <= format_y_cbcr; }

 private:
  template <class B>
  B view(B const &source, int width, int height, int default_stride) const {
    B b{};
    if (source.data != nullptr) b.data = Rasters::line(source, first);
    b.width = width;
    b.height = height;
    b.stride = source.stride * step;
    if (b.stride == 0) b.stride = default_stride;
    b.owned = false;
    return b;
  }
};

}  // namespace Tamarind::Parley::video

#endif  // SIGHT_FRAME_FIELD_VIEWS_H_
