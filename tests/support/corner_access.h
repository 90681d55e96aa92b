// Shared pieces of the corner tests: white-box access to the detector, and
// plain 4:2:2 frames for the tests that fill every byte themselves.
#ifndef SIGHT_TESTS_SUPPORT_CORNER_ACCESS_H_
#define SIGHT_TESTS_SUPPORT_CORNER_ACCESS_H_

#include <sight/corner/detection.h>
#include <sight/frame/bitmap.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "corner/segment_model.h"
#include "support/harness.h"

namespace Korvane::Sight::corner {

// Reaches the detector's private arrays and stages.
struct detection_access {
  static std::vector<corner_record> corners(detection const &d) {
    return {d.corners.first, d.corners.last};
  }
  static std::vector<corner_record> features(detection const &d) {
    return {d.features.first, d.features.last};
  }
  // The record after the last: the suppression's end mark.
  static corner_record end_mark(detection const &d) { return *d.corners.last; }
  // Replaces the corner list (or the features, strengths included) with
  // `records`, with storage for exactly those: the suppression must then
  // find room for its end mark itself.
  static void set_corners(detection &d, std::vector<corner_record> const &r) { replace(d.corners, r); }
  static void set_features(detection &d, std::vector<corner_record> const &r) { replace(d.features, r); }
  static void replace(detection::record_array &a, std::vector<corner_record> const &records) {
    std::size_t const n = records.size();
    auto *p = static_cast<corner_record *>(std::realloc(a.first, n * sizeof(corner_record) + (n == 0)));
    if (n != 0) std::memcpy(static_cast<void *>(p), records.data(), n * sizeof(corner_record));
    a = {p, p + n, p + n};
  }
  static int suppress(detection &d, int width) { return d.non_maxima_suppresion(width, 0); }
  static void extract(detection &d) { d.features_extract(detection::frame_type{}); }
  static void set_count(detection &d, int n) { d.no_features = n; }
};

}  // namespace Korvane::Sight::corner

namespace corner_test {

using harness::cat;

using frame_type = Korvane::Sight::corner::detection::frame_type;

// A 4:2:2 frame of rows `stride` bytes apart (tightly packed, or padded to
// 16) in a buffer that ends with the last picture byte, so that
// AddressSanitizer flags any read past it.
struct frame_buffer {
  std::vector<std::uint8_t> bytes;
  frame_type frame;
  frame_buffer(int width, int height, int stride, int offset)
      : bytes(std::size_t(offset + (height > 0 ? (height - 1) * stride + (width + 1) / 2 * 4 : 0))),
        frame{reinterpret_cast<Tamarind::Rasters::pixel_ycbcr_u8 *>(bytes.data() + offset), width, height, stride,
              false} {}
  void set_luma(int x, int y, int v) {
    reinterpret_cast<std::uint8_t *>(frame.data)[std::ptrdiff_t(y) * frame.stride + 2 * x + 1] = std::uint8_t(v);
  }
};

enum class layout { tight, aligned };
inline int stride_for(layout l, int width) {
  int const line = (width + 1) / 2 * 4;
  return l == layout::tight ? line : (line + 15) / 16 * 16;
}

}  // namespace corner_test

#endif  // SIGHT_TESTS_SUPPORT_CORNER_ACCESS_H_
