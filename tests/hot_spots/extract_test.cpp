// The five counting kernels against the scalar model on the harness's
// frames: random rectangles (empty, narrow, crossing every edge), counts,
// areas and decisions exactly as the model's, overrun included, and not a
// byte of the frame written.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <tuple>

#include <sight/hot_spots/extract_kernels.h>
#include <sight/hot_spots/hot_spots.h>
#include <sight/operator/detail/member.h>

#include "hot_spots/extract_model.h"
#include "support/harness.h"

namespace {

namespace S = Korvane::Sight;
namespace D = Korvane::Sight::detail;
namespace hm = hot_spots_model;
using K = D::hot_spots_kernels;
using harness::frame;
using harness::layout;

// One layout's kernel on one rectangle, its member picked from the bitmaps
// as the drivers pick it and left in `aligned` (-1 for the single member).
struct kernels {
  D::spot_key key;
  glm::ivec2 lt, rb;
  int &aligned;
  template <class F, class... B>
  D::spot_count pick(F const &f, B const &...b) const {
    return D::with_member([&](auto a) { return aligned = a, f(a); }, b...);
  }
  D::spot_count operator()(S::bgra_bitmap const &b) const {
    return pick([&](auto a) { return K::count_spot_bgra<a>(key, b, lt, rb); }, b);
  }
  D::spot_count operator()(S::ycbcra_bitmap const &b) const {
    return pick([&](auto a) { return K::count_spot_ycbcra<a>(key, b, lt, rb); }, b);
  }
  D::spot_count operator()(S::ycbcr_bitmap const &b) const {
    return pick([&](auto a) { return K::count_spot_422<a>(key, b, lt, rb); }, b);
  }
  D::spot_count operator()(S::y_bitmap const &, S::cbcr_bitmap const &c) const {
    return pick([&](auto a) { return K::count_spot_cbcr<a>(key, c, lt, rb); }, c);
  }
  D::spot_count operator()(S::y_bitmap const &, S::cb_bitmap const &cb, S::cr_bitmap const &cr) const {
    return aligned = -1, K::count_spot_cb_cr(key, cb, cr, lt, rb);
  }
};

hm::outcome run_model(frame const &f, hm::rect r, hm::key const &k) {
  auto const plane = [&](int n) {
    harness::plane const &p = f.planes[std::size_t(n)];
    int const w = f.l == layout::y_cbcr || f.l == layout::y_cb_cr ? f.g.width / 2 : f.g.width;
    return hm::make_plane(p.data(), p.shape().stride, w, n == 0 ? f.g.height : f.g.height / 2, p.shape().width);
  };
  switch (f.l) {
    case layout::bgra: return hm::extract_bgra(plane(0), r, k);
    case layout::ycbcra: return hm::extract_ycbcra(plane(0), r, k);
    case layout::ycbcr_422: return hm::extract_422(plane(0), r, k);
    case layout::y_cbcr: return hm::extract_cbcr(plane(1), r, k);
    default: return hm::extract_cb_cr(plane(1), plane(2), r, k);
  }
}

using params = std::tuple<layout, harness::geometry>;
class extract_test : public ::testing::TestWithParam<params> {};

TEST_P(extract_test, counts_as_the_model) {
  auto const [l, geo] = GetParam();
  std::mt19937 rng(unsigned(geo.width * 7919 + geo.height * 31 + geo.offset * 5 + geo.pad + int(l)));
  auto const uniform = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };

  // A random key set up by the operator, its lanes checked against the model.
  S::hot_spots op;
  op.color().r() = float(uniform(0, 255)) / 255.0f;
  op.color().g() = float(uniform(0, 255)) / 255.0f;
  op.color().b() = float(uniform(0, 255)) / 255.0f;
  op.tolerance_c() = float(uniform(0, 90)) / 100.0f;
  op.smoothness() = float(uniform(0, 100)) / 100.0f;
  D::spot_key const key = K::setup(op);
  hm::key k = hm::make_key(op.color().r(), op.color().g(), op.color().b(), op.tolerance_c(), op.smoothness(), 0);
  alignas(16) std::int32_t lanes[2][4];
  _mm_store_si128(reinterpret_cast<__m128i *>(lanes[0]), key.cb_cr);
  _mm_store_si128(reinterpret_cast<__m128i *>(lanes[1]), key.tolerance_sq);
  for (int i = 0; i < 4; ++i) {
    ASSERT_EQ(lanes[0][i], k.cr * 65536 + k.cb) << "lane " << i;
    ASSERT_EQ(lanes[1][i], k.radius2) << "lane " << i;
  }

  // Half the pixels near the key, by about its radius, the rest noise.
  frame const f(l, geo);
  f.randomize(rng);
  int const spread = 8 + int(std::sqrt(double(k.radius2)) * 1.5);
  f.paint([&](int, int) {
    auto const near = [&](int c) { return std::clamp(c + uniform(-spread, spread), 0, 255); };
    return rng() % 2 ? harness::from_chroma(uniform(0, 255), near(k.cb), near(k.cr))
                     : harness::from_chroma(uniform(0, 255), uniform(0, 255), uniform(0, 255));
  });
  frame const before = f;

  // Rectangles in picture pixels, a quarter reaching the right or lower edge
  // exactly (where the overrun meets the memory's end), one past every edge.
  int const pw = geo.width, ph = geo.height;
  std::vector<hm::rect> rects{{-5, -5, pw + 5, ph + 5}, {pw - 1, ph - 1, pw, ph}};
  for (int i = 0; i < 48; ++i) {
    hm::rect r;
    r.left = uniform(-4, pw + 2);
    r.right = uniform(0, 3) == 0 ? pw : r.left + uniform(-2, std::min(pw, 40) + 4);
    r.top = uniform(-3, ph + 1);
    r.bottom = uniform(0, 3) == 0 ? ph : r.top + uniform(-1, ph + 3);
    rects.push_back(r);
  }
  for (hm::rect const &r : rects) {
    k.threshold = uniform(-2, 40);
    auto const count = [&](hm::rect q, int &aligned) {
      return harness::visit(f, kernels{key, {q.left, q.top}, {q.right, q.bottom}, aligned});
    };
    int aligned = 0;
    D::spot_count const got = count(r, aligned);
    hm::outcome const want = run_model(f, r, k);
    std::string const where = harness::cat("rect (", r.left, ", ", r.top, ") - (", r.right, ", ", r.bottom, ")");
    if (aligned >= 0) {
      ASSERT_EQ(aligned == 1, f.aligned()) << "member";
    }
    for (int y = std::min(r.top, r.bottom); got.count != want.count && y < r.bottom; ++y) {
      hm::rect const row{r.left, y, r.right, y + 1};  // names the first row that disagrees
      int const kernel = count(row, aligned).count, model = run_model(f, row, k).count;
      if (kernel != model)
        return void(ADD_FAILURE() << where << ": row y " << y << " from x " << r.left << " counts model " << model
                                  << ", kernel " << kernel);
    }
    ASSERT_EQ(got.count, want.count) << where;
    if (!got.empty) {
      EXPECT_EQ(got.area, want.area) << where;
    }
    EXPECT_EQ(int(D::decide(got, k.threshold)), want.value) << where << " threshold " << k.threshold;
  }
  EXPECT_TRUE(harness::same_frame(before, f)) << "a kernel wrote to its frame";
}

INSTANTIATE_TEST_SUITE_P(frames, extract_test,
                         ::testing::Combine(::testing::ValuesIn(harness::pixel_layouts),
                                            ::testing::ValuesIn(harness::geometries({1, 2, 5}))),
                         [](auto const &info) {
                           return harness::name_of(std::get<0>(info.param), std::get<1>(info.param));
                         });

}  // namespace
