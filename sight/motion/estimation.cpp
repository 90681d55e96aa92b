#include <sight/motion/estimation.h>

#include <sight/frame/io.h>
#include <sight/motion/motion_kernels.h>
#include <sight/operator/detail/ldlt_solve.h>
#include <sight/operator/detail/member.h>

#include <Eigen/Core>

#include <cstdio>

namespace Korvane::Sight::motion {

namespace detail {

namespace {

// Gives the debug picture back if a called routine throws out of the loop.
struct released_on_unwind {
  bgra_bitmap &picture;
  ~released_on_unwind() { Tamarind::Rasters::release(picture); }
};

}  // namespace

void run(y_bitmap const &first, y_bitmap const &second, picture_writer write) {
  bgra_bitmap debug{};
  released_on_unwind const guard{debug};
  // A failed allocation is not looked at, as anywhere else on frame paths.
  Tamarind::Rasters::allocate(debug, first.width, first.height);

  similarity p{1.0f, 0.0f, 0.0f, 0.0f};
  for (;;) {
    normal_sums const s = Sight::detail::with_member(
        [&](auto aligned) { return accumulate<aligned>(first, second, p, debug); }, first);
    write(L"f:\\test.png", debug);
    std::printf("%f\n", double(s.energy));
    // A reader on a pipe must see each line as it is printed.
    std::fflush(stdout);

    Eigen::Matrix4f h;
    h << s.h[0], s.h[1], s.h[2], s.h[3],  //
        s.h[1], s.h[4], s.h[5], s.h[6],   //
        s.h[2], s.h[5], s.h[7], s.h[8],   //
        s.h[3], s.h[6], s.h[8], s.h[9];
    Eigen::Vector4f const g(s.g[0], s.g[1], s.g[2], s.g[3]);
    Eigen::Vector4f const d = Sight::detail::ldlt_solve<4>(h, g);
    p.a = p.a + (0.0f - d[0]);
    p.b = p.b + (0.0f - d[1]);
    p.tx = p.tx + (0.0f - d[2]);
    p.ty = p.ty + (0.0f - d[3]);
  }
}

}  // namespace detail

estimation::estimation(y_bitmap const &first, y_bitmap const &second) { (*this)(first, second); }

estimation &estimation::operator=(estimation const &) { return *this; }

void estimation::operator()(y_bitmap const &first, y_bitmap const &second) {
  detail::run(first, second, &Tamarind::Rasters::io::write<bgra_bitmap>);
}

}  // namespace Korvane::Sight::motion
