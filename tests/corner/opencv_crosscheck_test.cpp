// Cross-check against an independent implementation of the segment test: on a
// photograph with even luma and an even threshold, halving the luma loses
// nothing, so the corners before suppression must be exactly those that
// OpenCV's FAST (9 of 16, no suppression) finds inside the scanned area.
#include <sight/corner/detection.h>

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "support/corner_access.h"
#include "corner/segment_model.h"

#ifdef SIGHT_HAVE_OPENCV
#include <opencv2/features2d.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace {

#ifdef SIGHT_HAVE_OPENCV

using Korvane::Sight::corner::detection;
using Korvane::Sight::corner::detection_access;

char const *const photograph = "/usr/share/wallpapers/EveningGlow/contents/images/2560x1600.jpg";

// The photograph's luma with every level made even: halving it is exact.
cv::Mat const &even_luma() {
  static cv::Mat const gray = [] {
    cv::Mat g, colour = cv::imread(photograph, cv::IMREAD_COLOR);
    if (!colour.empty()) cv::cvtColor(colour, g, cv::COLOR_BGR2GRAY), g &= cv::Scalar(0xFE);
    return g;
  }();
  return gray;
}

class opencv_crosscheck_test : public ::testing::TestWithParam<int> {};

TEST_P(opencv_crosscheck_test, corners_before_suppression_are_fast_9_16) {
  cv::Mat const &g = even_luma();
  if (g.empty()) GTEST_SKIP() << "photograph not found: " << photograph;
  int const t = GetParam();
  // The luma into a 4:2:2 frame with neutral chroma, rows padded to 16 bytes.
  corner_test::frame_buffer f(g.cols, g.rows, corner_test::stride_for(corner_test::layout::aligned, g.cols), 0);
  for (auto &b : f.bytes) b = 128;
  for (int y = 0; y < g.rows; ++y)
    for (int x = 0; x < g.cols; ++x) f.set_luma(x, y, g.at<unsigned char>(y, x));

  detection d;
  d.threshold() = t;
  d = f.frame;
  std::set<std::pair<int, int>> ours;
  for (auto const &r : detection_access::corners(d)) ours.insert({r.x, r.y});

  std::vector<cv::KeyPoint> points;
  cv::FAST(g, points, t, false, cv::FastFeatureDetector::TYPE_9_16);
  corner_model::area const a = corner_model::scanned_area(g.cols, g.rows);
  std::set<std::pair<int, int>> theirs;
  for (cv::KeyPoint const &k : points) {
    int const x = int(k.pt.x), y = int(k.pt.y);
    if (x >= a.x0 && x < a.x1 && y >= a.y0 && y < a.y1) theirs.insert({x, y});
  }
  ASSERT_GT(theirs.size(), 1000u) << "too few corners to tell anything";
  std::vector<std::pair<int, int>> only_ours, only_theirs;
  for (auto const &p : ours)
    if (!theirs.count(p)) only_ours.push_back(p);
  for (auto const &p : theirs)
    if (!ours.count(p)) only_theirs.push_back(p);
  EXPECT_TRUE(only_ours.empty()) << only_ours.size() << " extra, first at x " << only_ours[0].first << ", y "
                                 << only_ours[0].second;
  EXPECT_TRUE(only_theirs.empty()) << only_theirs.size() << " missing, first at x " << only_theirs[0].first
                                   << ", y " << only_theirs[0].second;
}

INSTANTIATE_TEST_SUITE_P(even_thresholds, opencv_crosscheck_test, ::testing::Values(20, 40, 70, 120),
                         [](auto const &info) { return corner_test::cat("t", info.param); });

#endif  // SIGHT_HAVE_OPENCV

}  // namespace
