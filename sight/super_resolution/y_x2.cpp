// The times-two operations: every pixel type becomes a byte view, every
// operation becomes one pass of a line kernel on views that skip lines or run
// bottom-up. Nothing is allocated and nothing is copied first.
#include <sight/super_resolution/y_x2.h>

#include <cstdint>

#include <sight/operator/detail/member.h>
#include <sight/super_resolution/line_kernels.h>

namespace Korvane::Sight::super_resolution {

namespace {

namespace R = Tamarind::Rasters;
using detail::byte_view;

std::uint8_t *bytes(byte_view const &v) { return reinterpret_cast<std::uint8_t *>(v.data); }

// A bitmap of the luma type as the kernels see it: a non-owning view whose
// stride 0 becomes the line's length.
byte_view plain(byte_view const &b) {
  byte_view v{};
  R::attach(v, b.data, b.width, b.height, b.stride);
  return v;
}

// The same lines, bottom-up: data at the last line, stride negated.
byte_view reversed(byte_view v) {
  if (v.height >= 1) {
    v.data = reinterpret_cast<R::pixel_y_u8 *>(bytes(v) + std::ptrdiff_t(v.height - 1) * v.stride);
    v.stride = -v.stride;
  }
  return v;
}

// Every second line from line `first`: one field of a frame.
byte_view field(byte_view v, int first) {
  v.height = v.height / 2;
  if (v.height < 1) return byte_view{v.data, v.width, 0, v.stride, false};
  v.data = reinterpret_cast<R::pixel_y_u8 *>(bytes(v) + std::ptrdiff_t(first) * v.stride);
  v.stride = v.stride * 2;
  return v;
}

// The source cut to what the destination holds: no more bytes per line than
// a destination line has, and no more source lines than give `per_line`
// destination lines each. A destination of the proper size leaves it whole.
byte_view fit(byte_view s, byte_view const &d, int per_line) {
  int const width = d.width > 0 ? d.width : 0;
  int const lines = d.height > 0 ? d.height / per_line : 0;
  if (s.width > width) s.width = width;
  if (s.height > lines) s.height = lines;
  return s;
}

// End of the destination's memory: the end of the line that lies last in
// memory. The kernels' 1-column stores stop there, so the up to three bytes
// behind that line are not written, whatever room the caller may have; the
// bytes behind every other line fall into the gap before the next line in
// memory or into that line itself, and are written.
std::uint8_t const *spill_end(byte_view const &d) {
  if (d.height < 1 || d.width < 1) return bytes(d);
  std::ptrdiff_t const last = d.stride >= 0 ? std::ptrdiff_t(d.height - 1) * d.stride : 0;
  return bytes(d) + last + d.width;
}

// The line kernel of an operation, its members picked for the source and the
// destination apart: the aligned test is made on the very views it gets.
enum class line_op { shift, twice };

template <line_op Op>
void run(byte_view const &s, byte_view const &d, std::uint8_t const *end) {
  using Sight::detail::with_member;
  with_member(
      [&](auto sa) {
        with_member(
            [&](auto da) {
              if constexpr (Op == line_op::shift)
                detail::shift_half_line<sa, da>(s, d, end);
              else
                detail::double_lines<sa, da>(s, d, end);
            },
            d);
      },
      s);
}

// Any bitmap as bytes: same data, stride and height, the line's byte length
// as width. The stride stays as given (0 included) for the luma code to read.
template <class T>
byte_view as_bytes(R::bitmap<T> const &b) {
  return byte_view{reinterpret_cast<R::pixel_y_u8 *>(b.data),
                   b.width > 0 ? b.width * std::int32_t(sizeof(T)) : 0, b.height, b.stride, false};
}
byte_view as_bytes(R::bitmap_422<R::pixel_ycbcr_u8> const &b) {
  return byte_view{reinterpret_cast<R::pixel_y_u8 *>(b.data), b.width > 0 ? (b.width + 1) / 2 * 4 : 0,
                   b.height, b.stride, false};
}

// The shared bodies of the other pixel types: the luma code on byte views.
template <class B>
void f0_to_f1_bytes(B const &source, B &destination) {
  byte_view d = as_bytes(destination);
  y_x2::f0_to_f1(as_bytes(source), d);
}
template <class B>
void f1_to_f0_bytes(B const &source, B &destination) {
  byte_view d = as_bytes(destination);
  y_x2::f1_to_f0(as_bytes(source), d);
}
template <class B>
void rescale_bytes(B const &source, B &destination, bool is_f0) {
  byte_view d = as_bytes(destination);
  y_x2::rescale(as_bytes(source), d, is_f0);
}
template <class B>
void decomb_bytes(B const &source, B &destination) {
  byte_view d = as_bytes(destination);
  y_x2::decomb(as_bytes(source), d);
}
template <class B>
void decomb_bytes(B &frame) {
  byte_view f = as_bytes(frame);
  y_x2::decomb(f);
}

}  // namespace

y_x2 &y_x2::operator=(y_x2 const &) { return *this; }

void y_x2::f0_to_f1(y_bitmap const &source, y_bitmap &destination) {
  byte_view const d = plain(destination);
  run<line_op::shift>(fit(plain(source), d, 1), d, spill_end(d));
}

// Bottom-up, field 1 becomes a field 0 and the shift runs the other way. Each
// view is reversed by its own height, so a destination of another height has
// its written lines moved as a whole.
void y_x2::f1_to_f0(y_bitmap const &source, y_bitmap &destination) {
  byte_view const d = reversed(plain(destination));
  run<line_op::shift>(fit(reversed(plain(source)), d, 1), d, spill_end(d));
}

void y_x2::rescale(y_bitmap const &source, y_bitmap &destination, bool is_f0) {
  if (!is_f0) {
    byte_view d = reversed(plain(destination));
    rescale(reversed(plain(source)), d, true);
    return;
  }
  byte_view const d = plain(destination);
  run<line_op::twice>(fit(plain(source), d, 2), d, spill_end(d));
}

// Even lines are read, odd lines written, through two views with the doubled
// stride on one buffer; they share no line. An odd last line is in neither.
void y_x2::decomb(y_bitmap &frame) {
  byte_view const f = plain(frame);
  run<line_op::shift>(field(f, 0), field(f, 1), spill_end(f));
}

void y_x2::decomb(y_bitmap const &source, y_bitmap &destination) {
  if (source.data == destination.data && source.stride == destination.stride) {
    decomb(destination);
    return;
  }
  byte_view const d = plain(destination);
  run<line_op::twice>(fit(field(plain(source), 0), d, 2), d, spill_end(d));
}

void y_x2::f0_to_f1(a_bitmap const &s, a_bitmap &d) { f0_to_f1_bytes(s, d); }
void y_x2::f1_to_f0(a_bitmap const &s, a_bitmap &d) { f1_to_f0_bytes(s, d); }
void y_x2::rescale(a_bitmap const &s, a_bitmap &d, bool is_f0) { rescale_bytes(s, d, is_f0); }
void y_x2::decomb(a_bitmap const &s, a_bitmap &d) { decomb_bytes(s, d); }
void y_x2::decomb(a_bitmap &f) { decomb_bytes(f); }

void y_x2::f0_to_f1(cb_bitmap const &s, cb_bitmap &d) { f0_to_f1_bytes(s, d); }
void y_x2::f1_to_f0(cb_bitmap const &s, cb_bitmap &d) { f1_to_f0_bytes(s, d); }
void y_x2::rescale(cb_bitmap const &s, cb_bitmap &d, bool is_f0) { rescale_bytes(s, d, is_f0); }
void y_x2::decomb(cb_bitmap const &s, cb_bitmap &d) { decomb_bytes(s, d); }
void y_x2::decomb(cb_bitmap &f) { decomb_bytes(f); }

void y_x2::f0_to_f1(cr_bitmap const &s, cr_bitmap &d) { f0_to_f1_bytes(s, d); }
void y_x2::f1_to_f0(cr_bitmap const &s, cr_bitmap &d) { f1_to_f0_bytes(s, d); }
void y_x2::rescale(cr_bitmap const &s, cr_bitmap &d, bool is_f0) { rescale_bytes(s, d, is_f0); }
void y_x2::decomb(cr_bitmap const &s, cr_bitmap &d) { decomb_bytes(s, d); }
void y_x2::decomb(cr_bitmap &f) { decomb_bytes(f); }

void y_x2::f0_to_f1(cbcr_bitmap const &s, cbcr_bitmap &d) { f0_to_f1_bytes(s, d); }
void y_x2::f1_to_f0(cbcr_bitmap const &s, cbcr_bitmap &d) { f1_to_f0_bytes(s, d); }
void y_x2::rescale(cbcr_bitmap const &s, cbcr_bitmap &d, bool is_f0) { rescale_bytes(s, d, is_f0); }
void y_x2::decomb(cbcr_bitmap const &s, cbcr_bitmap &d) { decomb_bytes(s, d); }
void y_x2::decomb(cbcr_bitmap &f) { decomb_bytes(f); }

void y_x2::f0_to_f1(bgra_bitmap const &s, bgra_bitmap &d) { f0_to_f1_bytes(s, d); }
void y_x2::f1_to_f0(bgra_bitmap const &s, bgra_bitmap &d) { f1_to_f0_bytes(s, d); }
void y_x2::rescale(bgra_bitmap const &s, bgra_bitmap &d, bool is_f0) { rescale_bytes(s, d, is_f0); }
void y_x2::decomb(bgra_bitmap const &s, bgra_bitmap &d) { decomb_bytes(s, d); }
void y_x2::decomb(bgra_bitmap &f) { decomb_bytes(f); }

void y_x2::f0_to_f1(ycbcra_bitmap const &s, ycbcra_bitmap &d) { f0_to_f1_bytes(s, d); }
void y_x2::f1_to_f0(ycbcra_bitmap const &s, ycbcra_bitmap &d) { f1_to_f0_bytes(s, d); }
void y_x2::rescale(ycbcra_bitmap const &s, ycbcra_bitmap &d, bool is_f0) { rescale_bytes(s, d, is_f0); }
void y_x2::decomb(ycbcra_bitmap const &s, ycbcra_bitmap &d) { decomb_bytes(s, d); }
void y_x2::decomb(ycbcra_bitmap &f) { decomb_bytes(f); }

void y_x2::f0_to_f1(ycbcr_bitmap const &s, ycbcr_bitmap &d) { f0_to_f1_bytes(s, d); }
void y_x2::f1_to_f0(ycbcr_bitmap const &s, ycbcr_bitmap &d) { f1_to_f0_bytes(s, d); }
void y_x2::rescale(ycbcr_bitmap const &s, ycbcr_bitmap &d, bool is_f0) { rescale_bytes(s, d, is_f0); }
void y_x2::decomb(ycbcr_bitmap const &s, ycbcr_bitmap &d) { decomb_bytes(s, d); }
void y_x2::decomb(ycbcr_bitmap &f) { decomb_bytes(f); }

}  // namespace Korvane::Sight::super_resolution
