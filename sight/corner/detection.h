// Corner detection on the luma of 4:2:2 frames.
//
// A frame is handed over by assignment (`detector = frame;`), and the number
// of corners that survive the suppression is read back by conversion to int.
// Each pixel of the scanned area (a margin of 8 pixels left free) is put to
// the segment test: nine cyclically contiguous pixels of the ring of radius 3
// all darker, or all brighter, than the centre by more than the threshold, on
// luma halved to 7 bits. Every corner gets a strength (the sum of the absolute
// differences to its ring on full luma), and a corner that does not beat its
// direct neighbours is dropped. The survivors can be drawn with `viz`.
#ifndef SIGHT_CORNER_DETECTION_H_
#define SIGHT_CORNER_DETECTION_H_

#include <cstdint>
#include <utility>
#include <vector>

#include <sight/frame/export.h>
#include <sight/operator/layouts.h>

namespace Korvane::Sight::corner {

// One corner: position and strength. A strength of 0 marks a record as
// suppressed; y == 0xFFFF marks the end of a list.
struct corner_record {
  std::uint16_t x;
  std::uint16_t y;
  std::uint16_t strength;
};

struct SIGHT_API detection {
  using frame_type = ycbcr_bitmap;
  using matches_type = std::vector<std::pair<std::pair<int, int>, std::pair<int, int>>>;

  detection();
  ~detection();

  // Shallow copy of the whole block, pointers included: both objects then
  // share (and both free) the arrays. Safe only from an object that has
  // never held storage.
  detection &operator=(detection const &) = default;
  detection(detection const &) = delete;

  // Detects the corners of one frame and keeps those that survive.
  void operator=(frame_type const &frame);

  // Survivors of the last frame; 0 before the first.
  operator int() const { return no_features; }

  // Segment-test threshold in 8-bit luma levels; not checked here.
  int threshold() const { return threshold_; }
  int &threshold() { return threshold_; }

  // Marks every surviving corner on `frame`: a diagonal cross 9 pixels wide,
  // grey of the record's strength field with black on both sides of each
  // grey pixel, clipped to the frame.
  void viz(frame_type &frame) const;

  // Lays `left` and `right` side by side on `canvas` (16 black columns in
  // between, black below the lower one) and joins each match, given as
  // ((x, y) in left, (x, y) in right), by a white line with a dark edge.
  void viz(frame_type &canvas, frame_type const &left, frame_type const &right,
           matches_type const &matches) const;

 private:
  friend struct detection_access;  // white-box tests

  // Margin of the picture in which no pixel is tested.
  static constexpr int edge_size = 8;
  // Compile-time choices; only the path of value true exists.
  static constexpr bool enable_non_maxima_suppression = true;
  static constexpr bool use_alternative_strength = true;

  // A growable array of records: first, end of use, end of storage.
  struct record_array {
    corner_record *first;
    corner_record *last;
    corner_record *end_of_storage;
  };

  void features_extract(frame_type const &);
// The const on the count is part of the interface and has no effect.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wignored-qualifiers"
  int const non_maxima_suppresion(int width, int height);
#pragma GCC diagnostic pop

  record_array corners;
  record_array features;
  int no_features;
  int threshold_;  // the setting `threshold`; the accessor holds the name
};

}  // namespace Korvane::Sight::corner

#endif  // SIGHT_CORNER_DETECTION_H_
