// How an operator reads a message: the views of the whole picture or of one
// field, handed to the operator's bitmap entry for the message's layout.
//
//   format 0, 1 (4:2:2)        entry(ycbcr)
//   format 2 (three planes)    entry(y, cb, cr)
//   format 3 (Y Cb Cr A)       entry(ycbcra)
//   format 4 (B G R A)         entry(bgra)
//   format 5 (luma + CbCr)     entry(y, cbcr)
//
// False, with nothing called, for any other format: the operator then leaves
// its result zeroed.
#ifndef SIGHT_OPERATOR_DETAIL_MESSAGE_ENTRY_H_
#define SIGHT_OPERATOR_DETAIL_MESSAGE_ENTRY_H_

#include <sight/frame/field_views.h>

namespace Korvane::Sight::detail {

template <class Entry>
bool visit_layout(Tamarind::Parley::video::field_views const &v, Entry &&entry) {
  namespace video = Tamarind::Parley::video;
  switch (v.format) {
    case video::format_422:
    case video::format_422_alt:
      entry(v.ycbcr);
      return true;
    case video::format_planar:
      entry(v.y, v.cb, v.cr);
      return true;
    case video::format_ycbcra:
      entry(v.ycbcra);
      return true;
    case video::format_bgra:
      entry(v.bgra);
      return true;
    case video::format_y_cbcr:
      entry(v.y, v.cbcr);
      return true;
  }
  return false;
}

}  // namespace Korvane::Sight::detail

#endif  // SIGHT_OPERATOR_DETAIL_MESSAGE_ENTRY_H_
