// The colour matcher's search: measure, refine, correct, up to 20 passes.
#include <sight/color_matching/color_matching.h>
#include <sight/color_matching/procamp_kernels.h>
#include <sight/operator/detail/member.h>

#include <cmath>
#include <cstdint>
#include <cstring>

namespace Korvane::Sight {

namespace R = Tamarind::Rasters;

namespace {

constexpr int max_passes = 20;
constexpr float tolerance = 0.001f;

// The scratch picture is given back on every way out of the constructor.
struct released_on_exit {
  ycbcr_bitmap &bitmap;
  ~released_on_exit() { R::release(bitmap); }
};

// An odd width leaves each line's last macro-pixel of the scratch picture
// unwritten by the correction, yet the statistics count it. So that no
// result depends on uninitialised memory, a freshly made scratch picture
// takes those four bytes from the picture itself: the later passes then
// measure there what the first pass measured.
void fill_unwritten(ycbcr_bitmap const &picture, ycbcr_bitmap const &scratch) {
  if (picture.width <= 0 || picture.width % 2 == 0) return;
  std::size_t const last = std::size_t(picture.width / 2);
  for (std::int32_t y = 0; y < picture.height; ++y)
    std::memcpy(R::line(scratch, y) + last, R::line(picture, y) + last, sizeof(R::pixel_ycbcr_u8));
}

}  // namespace

color_matching::color_matching(ycbcr_bitmap const &picture, ycbcr_bitmap const &reference, bool)
    : brightness_(0.0f), contrast_(1.0f), saturation_(1.0f), u_offset_(0.0f), v_offset_(0.0f) {
  ycbcr_bitmap working{};
  released_on_exit const guard{working};
  // A view on the picture first, its stride with the two low bits cleared.
  R::attach(working, picture.data, picture.width, picture.height, picture.stride & ~std::int32_t(3));
  // The reference is the same on every pass: measured once.
  image_statistics const ref(reference);
  float const ref_y = std::sqrt(ref.y_variance);
  float const ref_cb = std::sqrt(ref.cb_variance);
  float const ref_cr = std::sqrt(ref.cr_variance);
  for (int pass = 0; pass < max_passes; ++pass) {
    image_statistics const cur(working);
    float const cur_y = std::sqrt(cur.y_variance);
    float const cur_cb = std::sqrt(cur.cb_variance);
    float const cur_cr = std::sqrt(cur.cr_variance);

    float const luma_gain = ref_y / cur_y;
    float const luma_shift = ref.y_mean - cur.y_mean * luma_gain;
    // One gain for both chroma channels: the least-squares fit of the two
    // reference deviations on the two current ones. The offsets match the
    // point half a deviation above the mean.
    float const chroma_gain = (ref_cr * cur_cr + ref_cb * cur_cb) / (cur_cr * cur_cr + cur_cb * cur_cb);
    float const cb_shift = ((ref.cb_mean * 2.0f + ref_cb) - (cur.cb_mean * 2.0f + cur_cb) * chroma_gain) * 0.5f;
    float const cr_shift = ((ref.cr_mean * 2.0f + ref_cr) - (cur.cr_mean * 2.0f + cur_cr) * chroma_gain) * 0.5f;

    // A NaN fails every comparison, so it never converges.
    bool const converged = std::fabs(luma_gain - 1.0f) <= tolerance && std::fabs(luma_shift) <= tolerance &&
                           std::fabs(chroma_gain - 1.0f) <= tolerance && std::fabs(cb_shift) <= tolerance &&
                           std::fabs(cr_shift) <= tolerance;

    // The settings compose as if the offsets came after the gain, while the
    // correction adds them before it; the next measurement takes up the
    // difference.
    contrast_ = contrast_ * luma_gain;
    brightness_ = luma_gain * brightness_ + luma_shift;
    saturation_ = saturation_ * chroma_gain;
    u_offset_ = chroma_gain * u_offset_ + cb_shift;
    v_offset_ = chroma_gain * v_offset_ + cr_shift;
    if (converged) break;

    // The first time this drops the view and makes the scratch picture;
    // afterwards it keeps it. The correction always starts from the
    // untouched picture. After the last pass it is made and not measured.
    bool const fresh = !working.owned;
    R::allocate(working, picture.width, picture.height);
    if (fresh) fill_unwritten(picture, working);
    apply_procamp(picture, working);
  }
}

float color_matching::brightness() const { return brightness_; }
float color_matching::contrast() const { return contrast_; }
float color_matching::saturation() const { return saturation_; }
float color_matching::u_offset() const { return u_offset_; }
float color_matching::v_offset() const { return v_offset_; }

void color_matching::apply_procamp(ycbcr_bitmap const &source, ycbcr_bitmap &destination) {
  detail::procamp_tables tables;
  detail::make_procamp_tables({brightness_, contrast_, saturation_, u_offset_, v_offset_}, tables);
  detail::with_member([&](auto aligned) { detail::apply_procamp_422<aligned>(tables, source, destination); },
                      destination);
}

}  // namespace Korvane::Sight
