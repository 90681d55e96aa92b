// What must hold of the filter's picture quality: on real photographs, a
// field rescaled to a frame comes closer to the original than line doubling.
// The benchmark program prints the full table.
#ifdef SIGHT_HAVE_OPENCV

#include <gtest/gtest.h>

#include "super_resolution/quality.h"

namespace {

TEST(rescale_quality, the_filter_beats_line_doubling_on_photographs) {
  int measured = 0;
  for (std::string const &path : sr_quality::photographs()) {
    cv::Mat const picture = sr_quality::load_grey(path);
    if (picture.empty()) continue;
    ++measured;
    sr_quality::psnr_row const row = sr_quality::measure(path, picture);
    EXPECT_GT(row.filter, row.doubling) << path;
  }
  ASSERT_GE(measured, 2) << "the wallpaper packages' photographs are missing";
}

}  // namespace

#endif  // SIGHT_HAVE_OPENCV
