// The five counting kernels against the scalar model: random frames of every
// width from 1 to 49 and two wide ones, random rectangles (empty, narrow,
// crossing every edge), both members, padded and unpadded strides, odd base
// offsets and reversed planes. Counts must agree exactly, overrun included,
// must not change with what lies outside the buffer, and nothing is written.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <sight/hot_spots/extract_kernels.h>
#include <sight/hot_spots/hot_spots.h>

#include "hot_spots/extract_model.h"
#include "hot_spots/test_frames.h"

namespace {

namespace R = Tamarind::Rasters;
namespace S = Korvane::Sight;
namespace hm = hot_spots_model;
namespace ht = hot_spots_test;
using kernels = S::detail::hot_spots_kernels;

enum class layout { bgra, ycbcra, ycbcr_422, cbcr, cb_cr };

char const *layout_name(layout l) {
  switch (l) {
    case layout::bgra: return "bgra";
    case layout::ycbcra: return "ycbcra";
    case layout::ycbcr_422: return "ycbcr422";
    case layout::cbcr: return "cbcr";
    case layout::cb_cr: return "cb_cr";
  }
  return "?";
}

int line_bytes_of(layout l, int width) {
  switch (l) {
    case layout::bgra: return hm::line_bytes_bgra(width);
    case layout::ycbcra: return hm::line_bytes_ycbcra(width);
    case layout::ycbcr_422: return hm::line_bytes_422(width);
    case layout::cbcr: return hm::line_bytes_cbcr(width);
    case layout::cb_cr: return hm::line_bytes_plane(width);
  }
  return 0;
}

// Picture pixels per bitmap column: the chroma planes are half size.
int scale_of(layout l) { return l == layout::cbcr || l == layout::cb_cr ? 2 : 1; }

struct extract_case {
  layout l;
  bool aligned;  // the aligned member, on 16-byte aligned rows
  int pad;       // bytes added to the line (after rounding to 16 when aligned)
  int offset;    // base offset of the first line in the buffer
  bool flip;     // negative stride
};

std::string name_of(::testing::TestParamInfo<extract_case> const &info) {
  extract_case const &c = info.param;
  std::ostringstream name;
  name << layout_name(c.l) << (c.aligned ? "_aligned" : "_unaligned") << "_pad" << c.pad << "_off"
       << c.offset << (c.flip ? "_flip" : "");
  return name.str();
}

std::vector<extract_case> all_cases() {
  std::vector<extract_case> cases;
  for (layout l : {layout::bgra, layout::ycbcra, layout::ycbcr_422, layout::cbcr, layout::cb_cr})
    for (bool flip : {false, true}) {
      // Separate planes have a single member, which needs no alignment.
      if (l != layout::cb_cr)
        for (int pad : {0, 16}) cases.push_back({l, true, pad, 0, flip});
      for (int pad : {0, 3, 16})
        for (int offset : {0, 1, 7}) cases.push_back({l, false, pad, offset, flip});
    }
  return cases;
}

// The planes of one frame, twice: in tight buffers and with noise around them.
struct frame_under_test {
  int width, height, stride_abs;
  std::vector<ht::plane_buffer> tight, guarded;
};

class extract_test : public ::testing::TestWithParam<extract_case> {
 protected:
  std::mt19937 rng_{20261122};

  int uniform(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng_); }

  // Random key settings on the operator, checked against the model's set-up.
  hm::key random_key(S::hot_spots &op, std::uint8_t (&rgb)[3]) {
    for (auto &c : rgb) c = std::uint8_t(uniform(0, 255));
    op.color().r() = float(rgb[0]) / 255.0f;
    op.color().g() = float(rgb[1]) / 255.0f;
    op.color().b() = float(rgb[2]) / 255.0f;
    op.tolerance_c() = float(uniform(0, 90)) / 100.0f;
    op.smoothness() = float(uniform(0, 100)) / 100.0f;
    kernels::setup(op);
    hm::key const k = hm::make_key(op.color().r(), op.color().g(), op.color().b(), op.tolerance_c(),
                                   op.smoothness(), 0);
    alignas(16) std::int32_t lanes[2][4];
    _mm_store_si128(reinterpret_cast<__m128i *>(lanes[0]), op.ref_cb_cr);
    _mm_store_si128(reinterpret_cast<__m128i *>(lanes[1]), op.ref_tolerance_sq);
    for (int i = 0; i < 4; ++i) {
      EXPECT_EQ(lanes[0][i], k.cr * 65536 + k.cb) << "lane " << i;
      EXPECT_EQ(lanes[1][i], k.radius2) << "lane " << i;
    }
    return k;
  }

  frame_under_test make_frame(extract_case const &c, int width, int height, hm::key const &k,
                              std::uint8_t const (&rgb)[3]) {
    int const line = line_bytes_of(c.l, width);
    int const stride_abs = (c.aligned ? (line + 15) / 16 * 16 : line) + c.pad;
    int const spread = 8 + int(std::sqrt(double(k.radius2)) * 1.5);
    auto const noise = [&](int v) { return ht::clamp_byte(v + uniform(-spread, spread)); };
    auto const rnd = [&] { return std::uint8_t(uniform(0, 255)); };
    std::vector<std::vector<std::uint8_t>> spans;
    switch (c.l) {
      case layout::bgra:
        spans.push_back(ht::make_span(height, stride_abs, line, 4, rng_, [&](std::uint8_t *p) {
          int const n = 3 * spread / 4;
          p[0] = ht::clamp_byte(rgb[2] + uniform(-n, n));
          p[1] = ht::clamp_byte(rgb[1] + uniform(-n, n));
          p[2] = ht::clamp_byte(rgb[0] + uniform(-n, n));
          p[3] = rnd();
        }));
        break;
      case layout::ycbcra:
        spans.push_back(ht::make_span(height, stride_abs, line, 4, rng_, [&](std::uint8_t *p) {
          p[0] = rnd(), p[1] = noise(k.cb), p[2] = noise(k.cr), p[3] = rnd();
        }));
        break;
      case layout::ycbcr_422:
        spans.push_back(ht::make_span(height, stride_abs, line, 4, rng_, [&](std::uint8_t *p) {
          p[0] = noise(k.cb), p[1] = rnd(), p[2] = noise(k.cr), p[3] = rnd();
        }));
        break;
      case layout::cbcr:
        spans.push_back(ht::make_span(height, stride_abs, line, 2, rng_, [&](std::uint8_t *p) {
          p[0] = noise(k.cb), p[1] = noise(k.cr);
        }));
        break;
      case layout::cb_cr:
        spans.push_back(ht::make_span(height, stride_abs, line, 1, rng_,
                                      [&](std::uint8_t *p) { p[0] = noise(k.cb); }));
        spans.push_back(ht::make_span(height, stride_abs, line, 1, rng_,
                                      [&](std::uint8_t *p) { p[0] = noise(k.cr); }));
        break;
    }
    frame_under_test f{width, height, stride_abs, {}, {}};
    for (auto const &span : spans) {
      f.tight.emplace_back(span, stride_abs, height, c.offset, c.flip, 0, rng_);
      f.guarded.emplace_back(span, stride_abs, height, c.offset, c.flip, 48, rng_);
    }
    return f;
  }

  static S::detail::spot_count run_kernel(extract_case const &c, S::hot_spots const &op,
                                          frame_under_test const &f,
                                          std::vector<ht::plane_buffer> const &planes,
                                          hm::rect r) {
    glm::ivec2 const lt(r.left, r.top), rb(r.right, r.bottom);
    S::detail::spot_key const key{op.ref_cb_cr, op.ref_tolerance_sq};
    auto const view = [&](auto *type, int i) {
      using P = std::remove_pointer_t<decltype(type)>;
      return R::bitmap<P>{reinterpret_cast<P *>(planes[i].data()), f.width, f.height,
                          planes[i].stride(), false};
    };
    switch (c.l) {
      case layout::bgra: {
        auto const b = view((R::pixel_bgra_u8 *)nullptr, 0);
        return c.aligned ? kernels::count_spot_bgra<true>(key, b, lt, rb)
                         : kernels::count_spot_bgra<false>(key, b, lt, rb);
      }
      case layout::ycbcra: {
        auto const b = view((R::pixel_ycbcra_u8 *)nullptr, 0);
        return c.aligned ? kernels::count_spot_ycbcra<true>(key, b, lt, rb)
                         : kernels::count_spot_ycbcra<false>(key, b, lt, rb);
      }
      case layout::ycbcr_422: {
        R::bitmap_422<R::pixel_ycbcr_u8> const b{
            reinterpret_cast<R::pixel_ycbcr_u8 *>(planes[0].data()), f.width, f.height,
            planes[0].stride(), false};
        return c.aligned ? kernels::count_spot_422<true>(key, b, lt, rb)
                         : kernels::count_spot_422<false>(key, b, lt, rb);
      }
      case layout::cbcr: {
        auto const b = view((R::pixel_cbcr_u8 *)nullptr, 0);
        return c.aligned ? kernels::count_spot_cbcr<true>(key, b, lt, rb)
                         : kernels::count_spot_cbcr<false>(key, b, lt, rb);
      }
      case layout::cb_cr:
        return kernels::count_spot_cb_cr(key, view((R::pixel_cb_u8 *)nullptr, 0),
                                         view((R::pixel_cr_u8 *)nullptr, 1), lt, rb);
    }
    return {};
  }

  static hm::outcome run_model(extract_case const &c, frame_under_test const &f, hm::rect r,
                               hm::key const &k) {
    int const line = line_bytes_of(c.l, f.width);
    auto const plane = [&](int i) {
      return hm::make_plane(f.tight[i].data(), f.tight[i].stride(), f.width, f.height, line);
    };
    switch (c.l) {
      case layout::bgra: return hm::extract_bgra(plane(0), r, k);
      case layout::ycbcra: return hm::extract_ycbcra(plane(0), r, k);
      case layout::ycbcr_422: return hm::extract_422(plane(0), r, k);
      case layout::cbcr: return hm::extract_cbcr(plane(0), r, k);
      case layout::cb_cr: return hm::extract_cb_cr(plane(0), plane(1), r, k);
    }
    return {};
  }

  // Random rectangles in picture pixels, a quarter of them reaching the
  // right or lower edge exactly (where the overrun meets the buffer's end),
  // plus one over the whole picture and beyond.
  std::vector<hm::rect> rectangles(extract_case const &c, int width, int height) {
    int const pw = width * scale_of(c.l), ph = height * scale_of(c.l);
    std::vector<hm::rect> rects{{-5, -5, pw + 5, ph + 5}, {pw - 1, ph - 1, pw, ph}};
    for (int i = 0; i < 48; ++i) {
      hm::rect r;
      r.left = uniform(-4, pw + 2);
      r.right = uniform(0, 3) == 0 ? pw : r.left + uniform(-2, std::min(pw, 40) + 4);
      r.top = uniform(-3, ph + 1);
      r.bottom = uniform(0, 3) == 0 ? ph : r.top + uniform(-1, ph + 3);
      rects.push_back(r);
    }
    return rects;
  }

  void check(extract_case const &c, int width, int height) {
    std::ostringstream trace;
    trace << "w" << width << "_h" << height;
    SCOPED_TRACE(trace.str());
    S::hot_spots op;
    std::uint8_t rgb[3];
    hm::key k = random_key(op, rgb);
    frame_under_test const f = make_frame(c, width, height, k, rgb);
    for (hm::rect const &r : rectangles(c, width, height)) {
      k.threshold = uniform(-2, 40);
      S::detail::spot_count const got = run_kernel(c, op, f, f.tight, r);
      S::detail::spot_count const guarded = run_kernel(c, op, f, f.guarded, r);
      hm::outcome const want = run_model(c, f, r, k);
      std::ostringstream where_text;
      where_text << "rect (" << r.left << ", " << r.top << ") - (" << r.right << ", " << r.bottom << ")";
      std::string const where = where_text.str();
      if (got.count != want.count) {
        // Name the first row that disagrees.
        for (int y = std::min(r.top, r.bottom); y < r.bottom; ++y) {
          hm::rect const row{r.left, y, r.right, y + 1};
          int const kernel = run_kernel(c, op, f, f.tight, row).count;
          int const model = run_model(c, f, row, k).count;
          if (kernel != model) {
            ADD_FAILURE() << where << ": row y " << y << " from x " << r.left << " counts model "
                          << model << ", kernel " << kernel;
            break;
          }
        }
      }
      EXPECT_EQ(got.count, want.count) << where << " model vs kernel";
      if (!got.empty) {
        EXPECT_EQ(got.area, want.area) << where;
      }
      EXPECT_EQ(int(S::detail::decide(got, k.threshold)), want.value)
          << where << " threshold " << k.threshold << " count " << got.count << " area " << got.area;
      EXPECT_EQ(guarded.count, got.count) << where << ": count depends on bytes outside the buffer";
    }
    for (auto const *planes : {&f.tight, &f.guarded})
      for (auto const &p : *planes) EXPECT_TRUE(p.unchanged()) << "a kernel wrote to its frame";
  }
};

TEST_P(extract_test, counts_as_the_model_on_random_frames) {
  extract_case const c = GetParam();
  for (int width = 1; width <= 49; ++width)
    for (int height : {1, 2, 5}) check(c, width, height);
  for (int width : {720, 1920}) check(c, width, 3);
}

INSTANTIATE_TEST_SUITE_P(layouts, extract_test, ::testing::ValuesIn(all_cases()), name_of);

}  // namespace
