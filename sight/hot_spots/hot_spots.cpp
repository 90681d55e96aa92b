// Frame driver of the hot-spot detector: set-up, spot rectangles, and the
// bitmap and message entries.
#include <sight/hot_spots/hot_spots.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <utility>

#include <sight/frame/field_views.h>
#include <sight/hot_spots/extract_kernels.h>

namespace Korvane::Sight {

namespace R = Tamarind::Rasters;
namespace video = Tamarind::Parley::video;

namespace {

// Truncation toward zero that saturates where a plain conversion would be
// undefined: beyond the int range, and 0 for NaN.
int truncate_saturated(float v) {
  if (v >= 2147483648.0f) return INT_MAX;
  if (v < -2147483648.0f) return INT_MIN;
  if (v != v) return 0;
  return int(v);
}

// Rounds half away from zero: 0.5 off a negative value, onto any other.
int round_away(float v) { return truncate_saturated(v < 0.0f ? v - 0.5f : v + 0.5f); }

// Truncates a chroma level and clamps it to 0..255.
int to_level(float v) {
  if (v >= 255.0f) return 255;
  return v > 0.0f ? int(v) : 0;
}

}  // namespace

const int hot_spots_info::no_spots;

hot_spots_info::hot_spots_info() : detected_{} {}

const glm::mat4 hot_spots::g_rgb_to_ycbcr(0.257f, -0.148f, 0.439f, 0.0f,   // R column
                                          0.504f, -0.291f, -0.368f, 0.0f,  // G column
                                          0.098f, 0.439f, -0.071f, 0.0f,   // B column
                                          0.063f, 0.502f, 0.502f, 1.0f);   // constants
const __m128i hot_spots::g_rgb_cbcr[2] = {
    _mm_setr_epi16(112, -74, -38, 129, 112, -74, -38, 129),
    _mm_setr_epi16(-18, -94, 112, 129, -18, -94, 112, 129)};
const __m128i hot_spots::g_0_0_0_255 = _mm_set1_epi32(int(0xFF000000u));
const __m128i hot_spots::g16_255 = _mm_set1_epi32(0x00FF00FF);
const __m128i hot_spots::g32_M1 = _mm_setr_epi32(-1, 0, 0, 0);
// The upper eight bytes are cleared (high bit set), so the gather widens
// straight into four (Cb, Cr) word pairs.
const __m128i hot_spots::g_shuffle_ycbcra =
    _mm_setr_epi8(1, 2, 5, 6, 9, 10, 13, 14, -1, -1, -1, -1, -1, -1, -1, -1);
const __m128i hot_spots::g16_1 = _mm_set1_epi32(0x00010001);

hot_spots::hot_spots() : hot_spots_data() {}

// All in single precision, in the order written.
void hot_spots::setup() {
  glm::mat4 const m = 255.0f * g_rgb_to_ycbcr;
  float const r = color().r(), g = color().g(), b = color().b();
  // m[column][row]: row 1 gives Cb, row 2 Cr.
  int const cb = to_level(m[0][1] * r + m[1][1] * g + m[2][1] * b + m[3][1] + 0.5f);
  int const cr = to_level(m[0][2] * r + m[1][2] * g + m[2][2] * b + m[3][2] + 0.5f);
  ref_cb_cr = _mm_set1_epi32(cr * 65536 + cb);

  // The middle of a soft key edge (s wide, ending t from the key), decided
  // hard. A negative middle is squared as it stands, so the radius grows
  // again once s / 2 passes t.
  float s = smoothness() * 0.3f;
  if (s < 0.0001f) s = 0.0001f;
  float t = tolerance_c() * 0.5f;
  if (t < 0.0f) t = 0.0f;
  float const radius = t - s * 0.5f;
  ref_tolerance_sq =
      _mm_set1_epi32(truncate_saturated(std::floor(radius * radius * 255.0f * 255.0f) + 0.5f));
  ref_threshold = threshold();
}

namespace detail {

void spot_rectangles(hot_spots_data const &settings, int width, int height, float aspect,
                     spot_rect (&rects)[hot_spots_data::no_spots]) {
  float const w = float(width), h = float(height);
  auto const &crop = settings.cropping();
  float xa = w * crop.left(), xb = (1.0f - crop.right()) * w;
  if (xa > xb) std::swap(xa, xb);
  float ya = h * crop.top(), yb = (1.0f - crop.bottom()) * h;
  if (ya > yb) std::swap(ya, yb);
  if (aspect == 0.0f) aspect = w / h;
  // One unit is sy pixels down and sx across; a negative aspect mirrors x.
  float const sx = (w * 0.5f) / aspect;
  float const sy = h * 0.5f;
  for (int i = 0; i < hot_spots_data::no_spots; ++i) {
    auto const &spot = settings.spots(i);
    float const cx = spot.x() * sx + w * 0.5f;
    float const cy = spot.y() * sy + sy;
    float hx = std::fabs(spot.size() * sx);
    float hy = std::fabs(spot.size() * sy);
    // No rectangle is under five pixels across before rounding.
    if (!(hx > 2.5f)) hx = 2.5f;
    if (!(hy > 2.5f)) hy = 2.5f;
    rects[i].left_top = glm::ivec2(round_away(std::max(cx - hx, xa)), round_away(std::max(cy - hy, ya)));
    rects[i].right_bottom =
        glm::ivec2(round_away(std::min(cx + hx, xb)), round_away(std::min(cy + hy, yb)));
  }
}

e_object_detected decide(spot_count const &c, std::int32_t threshold) {
  if (c.empty) return object_not_found;
  return c.count < std::min(threshold, c.area) ? object_not_found : object_found;
}

}  // namespace detail

template <class Extract>
void hot_spots::detect(hot_spots_info &info, int width, int height, float aspect,
                       Extract const &extract) {
  if (!enabled()) {
    info = hot_spots_info();
    return;
  }
  setup();
  detail::spot_rect rects[no_spots];
  detail::spot_rectangles(*this, width, height, aspect, rects);
  for (int i = 0; i < no_spots; ++i)
    info.detected(i) =
        spots(i).enabled() ? extract(rects[i].left_top, rects[i].right_bottom) : object_not_looked;
}

using kernels = detail::hot_spots_kernels;

e_object_detected hot_spots::extract(bgra_bitmap const &frame, glm::ivec2 left_top,
                                     glm::ivec2 right_bottom) const {
  return detail::decide(R::is_aligned(frame)
                            ? kernels::count_spot_bgra<true>(*this, frame, left_top, right_bottom)
                            : kernels::count_spot_bgra<false>(*this, frame, left_top, right_bottom),
                        ref_threshold);
}

e_object_detected hot_spots::extract(ycbcr_bitmap const &frame, glm::ivec2 left_top,
                                     glm::ivec2 right_bottom) const {
  return detail::decide(R::is_aligned(frame)
                            ? kernels::count_spot_422<true>(*this, frame, left_top, right_bottom)
                            : kernels::count_spot_422<false>(*this, frame, left_top, right_bottom),
                        ref_threshold);
}

e_object_detected hot_spots::extract(ycbcra_bitmap const &frame, glm::ivec2 left_top,
                                     glm::ivec2 right_bottom) const {
  return detail::decide(R::is_aligned(frame)
                            ? kernels::count_spot_ycbcra<true>(*this, frame, left_top, right_bottom)
                            : kernels::count_spot_ycbcra<false>(*this, frame, left_top, right_bottom),
                        ref_threshold);
}

e_object_detected hot_spots::extract(cbcr_bitmap const &cbcr, glm::ivec2 left_top,
                                     glm::ivec2 right_bottom) const {
  return detail::decide(R::is_aligned(cbcr)
                            ? kernels::count_spot_cbcr<true>(*this, cbcr, left_top, right_bottom)
                            : kernels::count_spot_cbcr<false>(*this, cbcr, left_top, right_bottom),
                        ref_threshold);
}

e_object_detected hot_spots::extract(cb_bitmap const &cb, cr_bitmap const &cr, glm::ivec2 left_top,
                                     glm::ivec2 right_bottom) const {
  return detail::decide(kernels::count_spot_cb_cr(*this, cb, cr, left_top, right_bottom),
                        ref_threshold);
}

void hot_spots::operator()(hot_spots_info &info, bgra_bitmap const &frame, float aspect) {
  detect(info, frame.width, frame.height, aspect,
         [&](glm::ivec2 lt, glm::ivec2 rb) { return extract(frame, lt, rb); });
}

void hot_spots::operator()(hot_spots_info &info, ycbcr_bitmap const &frame, float aspect) {
  detect(info, frame.width, frame.height, aspect,
         [&](glm::ivec2 lt, glm::ivec2 rb) { return extract(frame, lt, rb); });
}

void hot_spots::operator()(hot_spots_info &info, ycbcra_bitmap const &frame, float aspect) {
  detect(info, frame.width, frame.height, aspect,
         [&](glm::ivec2 lt, glm::ivec2 rb) { return extract(frame, lt, rb); });
}

void hot_spots::operator()(hot_spots_info &info, y_bitmap const &y, cbcr_bitmap const &cbcr,
                           float aspect) {
  detect(info, y.width, y.height, aspect,
         [&](glm::ivec2 lt, glm::ivec2 rb) { return extract(cbcr, lt, rb); });
}

void hot_spots::operator()(hot_spots_info &info, y_bitmap const &y, cb_bitmap const &cb,
                           cr_bitmap const &cr, float aspect) {
  detect(info, y.width, y.height, aspect,
         [&](glm::ivec2 lt, glm::ivec2 rb) { return extract(cb, cr, lt, rb); });
}

// The field views carry the picture height of the field, so all vertical
// geometry is in lines of the view; nothing is corrected for lower_field.
void hot_spots::operator()(hot_spots_info &info, video::message const *message, bool lower_field) {
  if (!enabled()) {
    info = hot_spots_info();
    return;
  }
  video::field_views const v = video::field_views::make(*message, lower_field);
  float const aspect = message->aspect_ratio();
  switch (v.format) {
    case video::format_422:
    case video::format_422_alt:
      (*this)(info, v.ycbcr, aspect);
      break;
    case video::format_planar:
      (*this)(info, v.y, v.cb, v.cr, aspect);
      break;
    case video::format_ycbcra:
      (*this)(info, v.ycbcra, aspect);
      break;
    case video::format_bgra:
      (*this)(info, v.bgra, aspect);
      break;
    case video::format_y_cbcr:
      (*this)(info, v.y, v.cbcr, aspect);
      break;
    default:
      info = hot_spots_info();
      break;
  }
}

hot_spots_info const hot_spots::operator()(bgra_bitmap const &frame, float aspect) {
  hot_spots_info info;
  (*this)(info, frame, aspect);
  return info;
}

hot_spots_info const hot_spots::operator()(ycbcr_bitmap const &frame, float aspect) {
  hot_spots_info info;
  (*this)(info, frame, aspect);
  return info;
}

hot_spots_info const hot_spots::operator()(ycbcra_bitmap const &frame, float aspect) {
  hot_spots_info info;
  (*this)(info, frame, aspect);
  return info;
}

hot_spots_info const hot_spots::operator()(y_bitmap const &y, cbcr_bitmap const &cbcr,
                                           float aspect) {
  hot_spots_info info;
  (*this)(info, y, cbcr, aspect);
  return info;
}

hot_spots_info const hot_spots::operator()(y_bitmap const &y, cb_bitmap const &cb,
                                           cr_bitmap const &cr, float aspect) {
  hot_spots_info info;
  (*this)(info, y, cb, cr, aspect);
  return info;
}

hot_spots_info const hot_spots::operator()(video::message const *message, bool lower_field) {
  hot_spots_info info;
  (*this)(info, message, lower_field);
  return info;
}

}  // namespace Korvane::Sight
