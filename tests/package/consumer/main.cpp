// A host that uses the installed library: a bitmap, a line, a conversion, and
// a perspective estimate from one pair.
#include <sight/sight.h>

#include <cstdio>

int main() {
  namespace R = Tamarind::Rasters;
  R::bitmap_422<R::pixel_ycbcr_u8> frame{};
  if (!R::allocate(frame, 8, 4)) return 1;
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 4; ++x) R::line(frame, y)[x] = {128, 16, 128, 16};
  int p0[2] = {-5, 1}, p1[2] = {50, 1};
  R::rasterize::line(frame, p0, p1, R::pixel_ycbcr_u8{128, 235, 128, 235});
  R::pixel_bgra_u8 out[8];
  R::convert_line(R::line(frame, 1), out, 8);
  Korvane::Sight::perspective estimate;
  estimate += {{1.0f, 2.0f}, {3.0f, 4.0f}};
  glm::mat3 const m = estimate;
  bool const ok = out[7].r == 255 && out[7].a == 255 && m[2][2] == 1.0f;
  R::release(frame);
  std::puts(ok ? "consumer ok" : "consumer wrong");
  return ok ? 0 : 1;
}
