// Reader of Y4M streams: a text header line, then frames that each start
// with a "FRAME" line followed by the raw planes.
//
// Only 8-bit colour spaces are taken (4:2:0 in all its siting variants, 4:2:2,
// 4:4:4, 4:4:4 with alpha, monochrome). Every problem with the stream is a
// y4m_error whose text names it; nothing is read past the frame asked for, so
// a stream on a pipe is consumed frame by frame.
#ifndef SIGHT_TOOLS_Y4M_H_
#define SIGHT_TOOLS_Y4M_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace sight_host {

struct y4m_error : std::runtime_error {
  using std::runtime_error::runtime_error;
};

enum class y4m_chroma { c420, c422, c444, c444alpha, mono };

struct y4m_header {
  int width = 0;
  int height = 0;
  int rate_num = 25, rate_den = 1;  // frames per second as a fraction
  int sar_num = 1, sar_den = 1;     // pixel aspect ratio; 0:0 in the stream means unknown
  char interlace = 'p';             // p progressive, t top field first, b bottom first, m mixed
  y4m_chroma chroma = y4m_chroma::c420;
};

// Width and height of plane `i` (0 luma, 1 Cb, 2 Cr, 3 alpha) and the number
// of planes of the header's colour space.
int y4m_planes(y4m_header const &h);
int y4m_plane_width(y4m_header const &h, int i);
int y4m_plane_height(y4m_header const &h, int i);

class y4m_reader {
 public:
  // `read(buffer, n)` returns how many bytes it gave, 0 at the end of input.
  using read_function = std::function<std::size_t(void *, std::size_t)>;

  // Reads and checks the header line.
  explicit y4m_reader(read_function read);

  y4m_header const &header() const { return header_; }

  // The next frame's planes one after the other, plane 0 first. False at a
  // clean end of the stream (no byte after the last frame).
  bool next(std::vector<std::uint8_t> &planes);

  // Frames read so far.
  std::int64_t frames() const { return frames_; }

 private:
  // One line of at most `limit` bytes without its '\n'; false when the input
  // ends before the first byte.
  bool read_line(std::string &line, std::size_t limit, char const *what);
  void read_exact(std::uint8_t *p, std::size_t n);

  read_function read_;
  y4m_header header_;
  std::size_t frame_bytes_ = 0;
  std::int64_t frames_ = 0;
};

}  // namespace sight_host

#endif  // SIGHT_TOOLS_Y4M_H_
