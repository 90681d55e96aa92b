// Frame driver of the hot-spot detector: set-up, spot rectangles, and the
// bitmap and message entries.
#include <sight/hot_spots/hot_spots.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include <sight/hot_spots/extract_kernels.h>
#include <sight/operator/color_matrix.h>
#include <sight/operator/detail/float_to_int.h>
#include <sight/operator/detail/key_chroma.h>
#include <sight/operator/detail/member.h>
#include <sight/operator/detail/message_entry.h>

namespace Korvane::Sight {

namespace R = Tamarind::Rasters;
namespace video = Tamarind::Parley::video;

const int hot_spots_info::no_spots;

hot_spots_info::hot_spots_info() : detected_{} {}

const glm::mat4 hot_spots::g_rgb_to_ycbcr = rgb_to_ycbcr_matrix();
namespace {
__m128i twice(std::int16_t const (&row)[4]) {
  return _mm_setr_epi16(row[0], row[1], row[2], row[3], row[0], row[1], row[2], row[3]);
}
}  // namespace
const __m128i hot_spots::g_rgb_cbcr[2] = {twice(hot_spots_rgb_cbcr[0]), twice(hot_spots_rgb_cbcr[1])};
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
  glm::ivec2 const key = detail::key_chroma(g_rgb_to_ycbcr, color().r(), color().g(), color().b());
  ref_cb_cr = _mm_set1_epi32(key.y * 65536 + key.x);

  // The middle of a soft key edge (s wide, ending t from the key), decided
  // hard. A negative middle is squared as it stands, so the radius grows
  // again once s / 2 passes t.
  float s = smoothness() * 0.3f;
  if (s < 0.0001f) s = 0.0001f;
  float t = tolerance_c() * 0.5f;
  if (t < 0.0f) t = 0.0f;
  float const radius = t - s * 0.5f;
  ref_tolerance_sq =
      _mm_set1_epi32(detail::truncate_saturated(std::floor(radius * radius * 255.0f * 255.0f) + 0.5f));
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
using detail::with_member;

e_object_detected hot_spots::extract(bgra_bitmap const &frame, glm::ivec2 left_top,
                                     glm::ivec2 right_bottom) const {
  detail::spot_key const key{ref_cb_cr, ref_tolerance_sq};
  return detail::decide(
      with_member([&](auto a) { return kernels::count_spot_bgra<a>(key, frame, left_top, right_bottom); }, frame),
      ref_threshold);
}

e_object_detected hot_spots::extract(ycbcr_bitmap const &frame, glm::ivec2 left_top,
                                     glm::ivec2 right_bottom) const {
  detail::spot_key const key{ref_cb_cr, ref_tolerance_sq};
  return detail::decide(
      with_member([&](auto a) { return kernels::count_spot_422<a>(key, frame, left_top, right_bottom); }, frame),
      ref_threshold);
}

e_object_detected hot_spots::extract(ycbcra_bitmap const &frame, glm::ivec2 left_top,
                                     glm::ivec2 right_bottom) const {
  detail::spot_key const key{ref_cb_cr, ref_tolerance_sq};
  return detail::decide(
      with_member([&](auto a) { return kernels::count_spot_ycbcra<a>(key, frame, left_top, right_bottom); }, frame),
      ref_threshold);
}

e_object_detected hot_spots::extract(cbcr_bitmap const &cbcr, glm::ivec2 left_top,
                                     glm::ivec2 right_bottom) const {
  detail::spot_key const key{ref_cb_cr, ref_tolerance_sq};
  return detail::decide(
      with_member([&](auto a) { return kernels::count_spot_cbcr<a>(key, cbcr, left_top, right_bottom); }, cbcr),
      ref_threshold);
}

e_object_detected hot_spots::extract(cb_bitmap const &cb, cr_bitmap const &cr, glm::ivec2 left_top,
                                     glm::ivec2 right_bottom) const {
  detail::spot_key const key{ref_cb_cr, ref_tolerance_sq};
  return detail::decide(kernels::count_spot_cb_cr(key, cb, cr, left_top, right_bottom), ref_threshold);
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
  if (!detail::visit_layout(v, [&](auto const &...planes) { (*this)(info, planes..., aspect); }))
    info = hot_spots_info();
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
