#include <sight/corner/detection.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <sight/corner/segment_kernels.h>
#include <sight/operator/detail/member.h>

namespace Korvane::Sight::corner {
namespace {

// Reallocates an array of records to `count` records at 16-byte alignment,
// keeping the contents. The C runtime's realloc already gives 16 bytes on
// this platform; the copy is only there should it ever give less. Both
// paths give memory that std::free takes back. A failure is not looked for.
corner_record *reallocate_aligned(corner_record *p, std::size_t count) {
  std::size_t const bytes = count * sizeof(corner_record);
  void *q = std::realloc(p, bytes);
  if (q != nullptr && reinterpret_cast<std::uintptr_t>(q) % 16 != 0) {
    void *r = std::aligned_alloc(16, (bytes + 15) / 16 * 16);
    if (r != nullptr) std::memcpy(r, q, bytes);
    std::free(q);
    q = r;
  }
  return static_cast<corner_record *>(q);
}

template <class Array>
void grow(Array &a, std::size_t capacity) {
  std::size_t const used = std::size_t(a.last - a.first);
  corner_record *const p = reallocate_aligned(a.first, capacity);
  a.first = p;
  a.last = p + used;
  a.end_of_storage = p + capacity;
}

}  // namespace

detection::detection()
    : corners{nullptr, nullptr, nullptr},
      features{nullptr, nullptr, nullptr},
      no_features(0),
      threshold_(70) {}

detection::~detection() {
  std::free(features.first);
  std::free(corners.first);
}

void detection::operator=(frame_type const &frame) {
  corners.last = corners.first;

  // The threshold in two signed-byte halves: th = T / 2, tr = T - th, both
  // taken modulo 256, so that T = 71 gives 35 and 36 (and T = 255 gives
  // tr = -128, for which every ring pixel counts as brighter).
  int const t = threshold_;
  std::int8_t const th = std::int8_t(t / 2);
  std::int8_t const tr = std::int8_t(std::uint8_t(t) - std::uint8_t(th));

  int const width = frame.width;
  int const height = frame.height;
  if (height - edge_size > edge_size) {
    struct growth {
      record_array *array;
      int width;
    } g{&corners, width};
    // Before each row: a row reports fewer than `width` corners, so that
    // much free room always suffices; eight rows' worth is gained at a time.
    reserve_fn const reserve = [](void *context, corner_record *last) {
      auto const &[a, w] = *static_cast<growth *>(context);
      a->last = last;
      if (a->end_of_storage - a->last < w)
        grow(*a, std::size_t(a->last - a->first) + 8 * std::size_t(w));
      return a->last;
    };
    auto const *data = reinterpret_cast<std::uint8_t const *>(frame.data);
    corners.last = Sight::detail::with_member(
        [&](auto a) { return detect_422<a>(data, frame.stride, width, height, th, tr, corners.last, reserve, &g); },
        frame);
  }
  // `corners` is sorted by row, then column: the suppression relies on it.
  no_features = non_maxima_suppresion(width, height);
  features_extract(frame);
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wignored-qualifiers"
int const detection::non_maxima_suppresion(int width, int /*height*/) {
#pragma GCC diagnostic pop
  // The end mark needs one record of room: a detector that never held
  // storage (a frame too small to scan) gets it here.
  if (corners.last == corners.end_of_storage)
    grow(corners, std::size_t(corners.last - corners.first) + 1);
  *corners.last = corner_record{0, 0xFFFF, 0};

  corner_record *const r = corners.first;
  std::uint32_t const n = std::uint32_t(corners.last - corners.first);
  if (n == 0) return 0;

  // Two tables of indices by column, for the current row and the next. The
  // last block of a row is tested whole, so a corner can stand at a column
  // up to width + 6 and its right neighbour at width + 7; a column is 16
  // bits, so no index passes 65536. Entries are never cleared: each use
  // checks the row of the record it finds (stale ones, and the end mark at
  // index n, have another row).
  std::size_t const columns = std::min<std::size_t>(std::size_t(std::max(width, 0)) + 8, 65537);
  auto *current = static_cast<std::uint32_t *>(__builtin_alloca(columns * sizeof(std::uint32_t)));
  auto *next = static_cast<std::uint32_t *>(__builtin_alloca(columns * sizeof(std::uint32_t)));
  std::fill(current, current + columns, n);
  std::fill(next, next + columns, n);

  // Enters the row that starts at record i into `table`; returns where the
  // next row starts (n after the last).
  auto take_row = [&](std::uint32_t i, std::uint32_t *table) {
    std::uint16_t const y = r[i].y;
    for (; i < n && r[i].y == y; ++i) table[r[i].x] = i;
    return i;
  };

  std::uint32_t p0 = 0;
  std::uint32_t p1 = take_row(0, current);
  int survivors = 0;
  while (p0 < n) {
    std::uint32_t const q0 = p1;
    std::uint32_t const q1 = q0 < n ? take_row(q0, next) : n;
    std::uint16_t const py = r[p0].y;
    // Below-neighbours only when the next row with corners is the very next row.
    bool const adjacent = q0 < n && r[q0].y == py + 1;
    for (std::uint32_t i = p0; i < p1; ++i) {
      corner_record &c = r[i];
      if (c.strength == 0) continue;
      // Later neighbours, in this order: right, then below-left, below,
      // below-right (x is at least the margin, so x - 1 is a column). Each
      // either beats the corner, which is then done with, or is beaten.
      std::uint32_t const x = c.x;
      auto beaten_by = [&](std::uint32_t index, std::uint16_t row) {
        corner_record &other = r[index];
        if (other.y != row) return false;
        // On a tie the later corner in scan order wins.
        if (c.strength <= other.strength) {
          c.strength = 0;
          return true;
        }
        other.strength = 0;
        return false;
      };
      if (beaten_by(current[x + 1], py)) continue;
      if (adjacent) {
        std::uint16_t const below = std::uint16_t(py + 1);
        if (beaten_by(next[x - 1], below) || beaten_by(next[x], below) || beaten_by(next[x + 1], below)) continue;
      }
      ++survivors;
    }
    std::swap(current, next);
    p0 = q0;
    p1 = q1;
  }
  return survivors;
}

void detection::features_extract(frame_type const &) {
  features.last = features.first;
  std::size_t const capacity = std::size_t(features.end_of_storage - features.first);
  std::size_t const wanted = std::size_t(std::max(no_features, 0));
  if (capacity < wanted) {
    grow(features, wanted);
    // The strength of a feature is never written; zeroed storage gives the
    // marks of viz a defined (black) grey.
    std::memset(static_cast<void *>(features.first), 0, wanted * sizeof(corner_record));
  }
  // Every corner's position is written at the end of use, which moves on
  // only for a survivor, so that no branch depends on the strengths. The
  // survivors number exactly `no_features`, so once the storage is full
  // every corner left is a suppressed one.
  std::size_t const room = std::size_t(features.end_of_storage - features.first);
  std::size_t kept = 0;
  for (corner_record const *c = corners.first; c != corners.last && kept != room; ++c) {
    features.first[kept].x = c->x;
    features.first[kept].y = c->y;
    kept += c->strength != 0;
  }
  features.last = features.first + kept;
}

}  // namespace Korvane::Sight::corner
