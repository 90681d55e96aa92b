#include "y4m.h"

#include <algorithm>
#include <charconv>
#include <string_view>

namespace sight_host {

namespace {

constexpr char kMagic[] = "YUV4MPEG2";
constexpr std::size_t kLineLimit = 4096;  // headers longer than this are not Y4M
constexpr int kSideLimit = 16384;
constexpr std::int64_t kPixelLimit = std::int64_t(8192) * 8192;

// A positive decimal number that fills `text` entirely.
bool parse_positive(std::string_view text, int &value) {
  int v = 0;
  auto const [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
  if (ec != std::errc() || end != text.data() + text.size() || v <= 0) return false;
  value = v;
  return true;
}

// "N:D" with N, D >= 0; 0:0 is allowed and means unknown.
bool parse_ratio(std::string_view text, int &num, int &den) {
  std::size_t const colon = text.find(':');
  if (colon == std::string_view::npos) return false;
  std::string_view const a = text.substr(0, colon), b = text.substr(colon + 1);
  int n = 0, d = 0;
  auto const r1 = std::from_chars(a.data(), a.data() + a.size(), n);
  auto const r2 = std::from_chars(b.data(), b.data() + b.size(), d);
  if (a.empty() || b.empty() || r1.ec != std::errc() || r1.ptr != a.data() + a.size() ||
      r2.ec != std::errc() || r2.ptr != b.data() + b.size() || n < 0 || d < 0)
    return false;
  num = n;
  den = d;
  return true;
}

}  // namespace

int y4m_planes(y4m_header const &h) {
  switch (h.chroma) {
    case y4m_chroma::mono: return 1;
    case y4m_chroma::c444alpha: return 4;
    default: return 3;
  }
}

int y4m_plane_width(y4m_header const &h, int i) {
  bool const halved = i == 1 || i == 2;
  return halved && (h.chroma == y4m_chroma::c420 || h.chroma == y4m_chroma::c422) ? (h.width + 1) / 2
                                                                                   : h.width;
}

int y4m_plane_height(y4m_header const &h, int i) {
  bool const halved = i == 1 || i == 2;
  return halved && h.chroma == y4m_chroma::c420 ? (h.height + 1) / 2 : h.height;
}

y4m_reader::y4m_reader(read_function read) : read_(std::move(read)) {
  std::string line;
  if (!read_line(line, kLineLimit, "header")) throw y4m_error("empty Y4M stream");
  std::string_view rest(line);
  if (rest.substr(0, sizeof kMagic - 1) != kMagic ||
      (rest.size() > sizeof kMagic - 1 && rest[sizeof kMagic - 1] != ' '))
    throw y4m_error("not a Y4M stream (no YUV4MPEG2 signature)");
  rest.remove_prefix(sizeof kMagic - 1);
  while (!rest.empty()) {
    std::size_t const start = rest.find_first_not_of(' ');
    if (start == std::string_view::npos) break;
    rest.remove_prefix(start);
    std::size_t const end = rest.find(' ');
    std::string_view const token = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end);
    std::string_view const value = token.substr(1);
    switch (token[0]) {
      case 'W':
        if (!parse_positive(value, header_.width) || header_.width > kSideLimit)
          throw y4m_error("malformed Y4M header: bad width '" + std::string(value) + "'");
        break;
      case 'H':
        if (!parse_positive(value, header_.height) || header_.height > kSideLimit)
          throw y4m_error("malformed Y4M header: bad height '" + std::string(value) + "'");
        break;
      case 'F':
        if (!parse_ratio(value, header_.rate_num, header_.rate_den) || header_.rate_num == 0 ||
            header_.rate_den == 0)
          throw y4m_error("malformed Y4M header: bad frame rate '" + std::string(value) + "'");
        break;
      case 'A':
        if (!parse_ratio(value, header_.sar_num, header_.sar_den))
          throw y4m_error("malformed Y4M header: bad pixel aspect '" + std::string(value) + "'");
        if (header_.sar_num == 0 || header_.sar_den == 0) header_.sar_num = header_.sar_den = 1;
        break;
      case 'I':
        if (value.size() != 1 || std::string_view("ptbm").find(value[0]) == std::string_view::npos)
          throw y4m_error("malformed Y4M header: bad interlacing '" + std::string(value) + "'");
        header_.interlace = value[0];
        break;
      case 'C':
        if (value == "420jpeg" || value == "420paldv" || value == "420mpeg2" || value == "420")
          header_.chroma = y4m_chroma::c420;
        else if (value == "422")
          header_.chroma = y4m_chroma::c422;
        else if (value == "444")
          header_.chroma = y4m_chroma::c444;
        else if (value == "444alpha")
          header_.chroma = y4m_chroma::c444alpha;
        else if (value == "mono")
          header_.chroma = y4m_chroma::mono;
        else
          throw y4m_error("unsupported Y4M pixel format 'C" + std::string(value) + "'");
        break;
      case 'X':
        break;  // comments and extensions
      default:
        throw y4m_error("malformed Y4M header: unknown field '" + std::string(token) + "'");
    }
  }
  if (header_.width == 0 || header_.height == 0)
    throw y4m_error("malformed Y4M header: no width or height");
  if (std::int64_t(header_.width) * header_.height > kPixelLimit)
    throw y4m_error("Y4M frame too large");
  for (int i = 0; i < y4m_planes(header_); ++i)
    frame_bytes_ += std::size_t(y4m_plane_width(header_, i)) * std::size_t(y4m_plane_height(header_, i));
}

bool y4m_reader::next(std::vector<std::uint8_t> &planes) {
  std::string line;
  if (!read_line(line, kLineLimit, "frame header")) return false;
  if (line.compare(0, 5, "FRAME") != 0 || (line.size() > 5 && line[5] != ' '))
    throw y4m_error("malformed Y4M frame " + std::to_string(frames_) + ": no FRAME marker");
  // Grown as the bytes arrive, so that a header that claims huge frames
  // costs memory only for what the stream really holds.
  planes.clear();
  while (planes.size() < frame_bytes_) {
    std::size_t const at = planes.size(), chunk = std::min<std::size_t>(frame_bytes_ - at, 1 << 20);
    planes.resize(at + chunk);
    read_exact(planes.data() + at, chunk);
  }
  ++frames_;
  return true;
}

bool y4m_reader::read_line(std::string &line, std::size_t limit, char const *what) {
  line.clear();
  for (;;) {
    char c;
    if (read_(&c, 1) != 1) {
      if (line.empty()) return false;
      throw y4m_error(std::string("truncated Y4M ") + what);
    }
    if (c == '\n') return true;
    if (line.size() == limit) throw y4m_error(std::string("malformed Y4M ") + what + ": line too long");
    line.push_back(c);
  }
}

void y4m_reader::read_exact(std::uint8_t *p, std::size_t n) {
  while (n > 0) {
    std::size_t const got = read_(p, n);
    if (got == 0) throw y4m_error("truncated Y4M frame " + std::to_string(frames_));
    p += got;
    n -= got;
  }
}

}  // namespace sight_host
