// The suppression over later neighbours and the extraction of survivors: hand
// cases for each consequence of the scan order, and random lists against the
// model.
#include <sight/corner/detection.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <utility>
#include <vector>

#include "support/corner_access.h"
#include "corner/segment_model.h"

namespace {

using Korvane::Sight::corner::corner_record;
using Korvane::Sight::corner::detection;
using Korvane::Sight::corner::detection_access;
using position = std::pair<int, int>;

// Runs the detector's suppression and extraction on `records`.
std::vector<position> survivors_of(detection &d, std::vector<corner_record> const &records, int width,
                                   int *count) {
  detection_access::set_corners(d, records);
  *count = detection_access::suppress(d, width);
  detection_access::set_count(d, *count);
  detection_access::extract(d);
  std::vector<position> out;
  for (corner_record const &f : detection_access::features(d)) out.push_back({f.x, f.y});
  return out;
}

std::vector<corner_model::record> to_model(std::vector<corner_record> const &records) {
  std::vector<corner_model::record> m;
  for (corner_record const &r : records) m.push_back({r.x, r.y, r.strength});
  return m;
}

// Hand cases for the consequences of the scan order; records sorted by row,
// then column, survivors in scan order.
TEST(suppression_test, keeps_the_expected_corners) {
  struct suppression_case {
    std::vector<corner_record> records;
    std::vector<position> survivors;
  };
  suppression_case const cases[] = {
      {{{10, 10, 5}, {11, 10, 5}}, {{11, 10}}},  // a tie in a row keeps the right one
      // A falling run keeps every second corner from the first.
      {{{10, 10, 5}, {11, 10, 4}, {12, 10, 3}, {13, 10, 2}, {14, 10, 1}}, {{10, 10}, {12, 10}, {14, 10}}},
      {{{10, 10, 5}, {11, 10, 3}, {9, 11, 9}}, {{9, 11}}},  // a win is not undone by a later loss
      // Below-left comes before below: it is removed before the corner loses.
      {{{10, 10, 5}, {9, 11, 4}, {10, 11, 6}, {12, 11, 1}}, {{10, 11}, {12, 11}}},
      // A removed corner is skipped, so its own neighbours survive it.
      {{{10, 10, 9}, {11, 10, 5}, {12, 10, 3}}, {{10, 10}, {12, 10}}},
  };
  for (suppression_case const &c : cases) {
    detection d;
    int count = 0;
    EXPECT_EQ(survivors_of(d, c.records, 64, &count), c.survivors);
    EXPECT_EQ(count, int(c.survivors.size()));
    // The end mark follows the last record, in storage the suppression grew.
    EXPECT_EQ(detection_access::end_mark(d).y, 0xFFFF);
    auto model = to_model(c.records);
    EXPECT_EQ(corner_model::non_maxima_suppresion(model), count);
    EXPECT_EQ(corner_model::features_extract(model), c.survivors);
  }
}

// Random dense lists with many ties: the detector's tables against the model's
// lookup, over widths up to the columns a whole last block can report.
class suppression_random_test : public ::testing::TestWithParam<int> {};

TEST_P(suppression_random_test, matches_the_model) {
  int const seed = GetParam();
  std::mt19937 rng{unsigned(seed)};
  int const width = 17 + seed % 40;
  int const last_column = 8 + (width - 17) / 16 * 16 + 15;  // the last block, tested whole
  std::uniform_int_distribution<int> chance(0, 99), strength(1, seed % 3 == 0 ? 3 : 4080);
  int const density = 20 + seed % 70;
  std::vector<corner_record> records;
  for (int y = 8; y < 40; ++y) {
    if (chance(rng) < 15) continue;  // rows without corners
    for (int x = 8; x <= last_column; ++x)
      if (chance(rng) < density) records.push_back({std::uint16_t(x), std::uint16_t(y), std::uint16_t(strength(rng))});
  }
  // The whole list, then its first third on the same detector: storage is
  // reused, and a feature's strength is storage zeroed when it grew.
  detection d;
  for (std::size_t n : {records.size(), records.size() / 3}) {
    std::vector<corner_record> const list(records.begin(), records.begin() + std::ptrdiff_t(n));
    int count = 0;
    auto const survivors = survivors_of(d, list, width, &count);
    auto model = to_model(list);
    EXPECT_EQ(count, corner_model::non_maxima_suppresion(model));
    EXPECT_EQ(survivors, corner_model::features_extract(model));
    for (corner_record const &f : detection_access::features(d)) ASSERT_EQ(f.strength, 0);
    auto const after = detection_access::corners(d);
    ASSERT_EQ(after.size(), model.size());
    for (std::size_t i = 0; i < after.size(); ++i)
      ASSERT_EQ(after[i].strength, model[i].strength) << "at x " << after[i].x << ", y " << after[i].y;
  }
}

INSTANTIATE_TEST_SUITE_P(seeds, suppression_random_test, ::testing::Range(0, 24));

}  // namespace
