// The host program end to end: one table of command lines, each with what its
// output must show, on clips that ffmpeg draws into a temporary folder.
#include <sys/wait.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sight/sight.h>

#if !defined(SIGHT_HOST)
TEST(host_test, needs_the_host) { GTEST_SKIP() << "the host program is not built (SIGHT_TOOLS off)"; }
#else
#include "y4m.h"

namespace {

namespace fs = std::filesystem;
namespace S = Korvane::Sight;
using json = nlohmann::json;

struct run_result {
  int status = -1;
  std::string output;       // standard output
  std::vector<json> lines;  // the same, one parsed object a line
  std::string errors;       // standard error
};

std::string read_file(fs::path const &p) {
  std::ifstream in(p, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

struct row {
  char const *name;
  std::string command;  // {sight} and {dir} are replaced
  int status;
  std::function<void(run_result const &, fs::path const &)> check;
};

void PrintTo(row const &r, std::ostream *os) { *os << r.command; }

// The moving square: 48 by 48 pixels of the tracker's default key over a
// blue backdrop, top left corner at (40 + 8n, 60 + 4n) in frame n.
constexpr char kSquare[] =
    "color=c=0x325AA0:s=320x240:r=25:d=1[b];color=c=0xC88977:s=48x48:r=25:d=1[s];"
    "[b][s]overlay=x=40+8*n:y=60+4*n:shortest=1";

class host_test : public testing::TestWithParam<row> {
 protected:
  static void SetUpTestSuite() {
    dir_ = fs::temp_directory_path() / ("sight_host_test_" + std::to_string(getpid()));
    fs::create_directories(dir_);
    std::string const ff = std::string(SIGHT_FFMPEG) + " -v error -y -f lavfi -i ";
    std::string const d = dir_.string();
    std::string const clips[] = {
        ff + "\"" + kSquare + "\" -pix_fmt yuv420p -frames:v 25 " + d + "/square.mp4",
        ff + "testsrc2=s=320x240:r=25:d=0.4 -pix_fmt yuv422p " + d + "/pattern.y4m",
        ff + "smptehdbars=s=640x360:r=25:d=0.2 " + d + "/bars.mkv",
        ff + "testsrc2=s=64x48:r=25:d=0.2 -pix_fmt yuv420p10le -strict -1 " + d + "/deep.y4m",
    };
    for (std::string const &c : clips) ASSERT_EQ(std::system(c.c_str()), 0) << c;
    std::ofstream(dir_ / "garbage.mp4") << std::string(5000, 'x');
    std::ofstream(dir_ / "zero.y4m") << "YUV4MPEG2 W0 H10\nFRAME\n";
    std::ofstream(dir_ / "short.y4m") << "YUV4MPEG2 W16 H16 C420jpeg\nFRAME\n" << std::string(100, 'x');
    std::ofstream(dir_ / "pairs.txt") << "# u = 2x + 10, v = 3y + 10\n0 0 10 10\n1 0 12 10\n0 1 10 13\n1 1 12 13\n"
                                      << "2 1 14 13 2\n";
    std::ofstream(dir_ / "bad_pairs.txt") << "0 0 10 10\n1 0 12\n";
    // An orange square over spot 0 at its default place, on the spots' key.
    glm::vec2 const p = S::hot_spots_data::default_position(0);
    int const x = int((p.x + 4.0f / 3) / (8.0f / 3) * 320) - 12, y = int((p.y + 1) / 2 * 240) - 12;
    std::string const spot = ff + "\"color=c=0x325AA0:s=320x240:r=25:d=0.2[b];color=c=0xF08C28:s=24x24:r=25:d=0.2[s];[b][s]overlay=" +
                             std::to_string(x) + ":" + std::to_string(y) + ":shortest=1\" -frames:v 5 " + d + "/spot.mkv";
    ASSERT_EQ(std::system(spot.c_str()), 0) << spot;
  }
  static void TearDownTestSuite() {
    std::error_code ec;
    fs::remove_all(dir_, ec);
  }

  static run_result run(std::string command) {
    for (auto [key, value] : {std::pair<std::string, std::string>{"{sight}", SIGHT_HOST}, {"{dir}", dir_.string()}})
      for (std::size_t at; (at = command.find(key)) != std::string::npos;) command.replace(at, key.size(), value);
    fs::path const out = dir_ / "out.txt", err = dir_ / "err.txt";
    int const raw = std::system((command + " >" + out.string() + " 2>" + err.string()).c_str());
    run_result r;
    r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    r.errors = read_file(err);
    r.output = read_file(out);
    return r;
  }

  static inline fs::path dir_;
};

TEST_P(host_test, shows_what_it_must) {
  row const &r = GetParam();
  run_result result = run(r.command);
  if (r.command.find("--help") == std::string::npos) {
    std::istringstream text(result.output);
    for (std::string line; std::getline(text, line);) result.lines.push_back(json::parse(line));  // throws if not JSON
  }
  EXPECT_EQ(result.status, r.status) << result.errors;
  if (r.status == 2) {  // exactly one line naming the problem
    EXPECT_EQ(std::count(result.errors.begin(), result.errors.end(), '\n'), 1) << result.errors;
    EXPECT_EQ(result.errors.rfind("sight: ", 0), 0u) << result.errors;
  }
  for (json const &line : result.lines)  // frame lines name their file, frame and time
    EXPECT_TRUE(line.contains("picture") || line.contains("matrix") || line.contains("energy") ||
                (line.contains("file") && line.contains("frame") && line.contains("time")))
        << line;
  r.check(result, dir_);
}

// The square's centre in pixels from a tracker line, and where it was drawn.
void expect_square(run_result const &r, int cell_w, int cell_h) {
  ASSERT_EQ(r.lines.size(), 25u);
  for (json const &l : r.lines) {
    int const n = l["frame"];
    ASSERT_EQ(l["object_detected"], 1) << l;
    float const aspect = 320.0f / 240.0f, x = l["centre"][0], y = l["centre"][1];
    EXPECT_NEAR((x + aspect) / (2 * aspect) * 320, 40 + 8 * n + 24, cell_w) << "frame " << n;
    EXPECT_NEAR((y + 1) / 2 * 240, 60 + 4 * n + 24, cell_h) << "frame " << n;
  }
}

// Frames of a Y4M file as 4:2:2 bitmaps (planar 4:2:2 packed as Cb Y0 Cr Y1).
std::vector<std::vector<std::uint8_t>> read_422(fs::path const &p, int &width, int &height) {
  std::FILE *f = std::fopen(p.c_str(), "rb");
  sight_host::y4m_reader reader([f](void *b, std::size_t n) { return std::fread(b, 1, n, f); });
  width = reader.header().width;
  height = reader.header().height;
  std::vector<std::vector<std::uint8_t>> frames;
  for (std::vector<std::uint8_t> planes; reader.next(planes);) {
    std::vector<std::uint8_t> packed(std::size_t(width) * height * 2);
    std::uint8_t const *y = planes.data(), *cb = y + width * height, *cr = cb + width / 2 * height;
    for (int i = 0; i < width * height / 2; ++i) {
      std::uint8_t const q[4] = {cb[i], y[2 * i], cr[i], y[2 * i + 1]};
      std::copy(q, q + 4, &packed[4 * i]);
    }
    frames.push_back(std::move(packed));
  }
  std::fclose(f);
  return frames;
}

void expect_decombed(run_result const &, fs::path const &dir) {
  int w, h, ow, oh;
  auto frames = read_422(dir / "pattern.y4m", w, h);
  auto const out = read_422(dir / "decomb.y4m", ow, oh);
  ASSERT_EQ(out.size(), frames.size());
  ASSERT_EQ(ow * 1000 + oh, w * 1000 + h);
  for (std::size_t n = 0; n < frames.size(); ++n) {
    S::ycbcr_bitmap b{};
    Tamarind::Rasters::attach(b, reinterpret_cast<Tamarind::Rasters::pixel_ycbcr_u8 *>(frames[n].data()), w, h);
    S::super_resolution::y_x2::decomb(b);
    EXPECT_TRUE(frames[n] == out[n]) << "frame " << n;
  }
}

void expect_rescaled(run_result const &r, fs::path const &dir) {
  int w, h, ow, oh;
  auto const in = read_422(dir / "pattern.y4m", w, h);
  auto const out = read_422(dir / "rescale.y4m", ow, oh);
  ASSERT_EQ(r.lines.size(), 2 * in.size());
  ASSERT_EQ(out.size(), 2 * in.size());
  ASSERT_EQ(ow * 1000 + oh, w * 1000 + h);
  // Field 0 doubled keeps its lines where they were; field 1 too.
  std::size_t const line = std::size_t(w) * 2;
  for (std::size_t n = 0; n < out.size(); ++n)
    for (int y = int(n % 2); y < h; y += 2)
      ASSERT_TRUE(std::equal(&out[n][y * line], &out[n][y * line] + line, &in[n / 2][y * line]))
          << "frame " << n << " line " << y;
}

void expect_corners(run_result const &r, fs::path const &) {
  ASSERT_FALSE(r.lines.empty());
  for (json const &l : r.lines) EXPECT_GT(l["corners"], 20) << l;
}

// Out of the band the threshold moves one level a frame towards it.
void expect_stepping(run_result const &r, fs::path const &) {
  ASSERT_GE(r.lines.size(), 3u);
  for (std::size_t i = 1; i < r.lines.size(); ++i) {
    int const count = r.lines[i - 1]["corners"], before = r.lines[i - 1]["threshold"];
    int const want = count < 30 ? before - 1 : count > 40 ? before + 1 : before;
    EXPECT_EQ(r.lines[i]["threshold"], want) << r.lines[i];
  }
}

// How many lines name each input (a file of the folder, or "stdin").
std::function<void(run_result const &, fs::path const &)> lines_of(std::vector<std::pair<std::string, int>> files) {
  return [files](run_result const &r, fs::path const &dir) {
    for (auto const &[f, count] : files) {
      std::string const name = f == "stdin" ? f : (dir / f).string();
      EXPECT_EQ(std::count_if(r.lines.begin(), r.lines.end(), [&](json const &l) { return l["file"] == name; }),
                count)
          << f;
    }
  };
}

auto const nothing = [](run_result const &, fs::path const &) {};
auto const square = [](int w, int h) { return [w, h](run_result const &r, fs::path const &) { expect_square(r, w, h); }; };

std::vector<row> const rows = {
    // Cells are 16 by 8 pixels on 4:2:2, 8 by 8 on BGRA and YCbCrA, 16 by 16 on the planes.
    {"track_422", "{sight} track {dir}/square.mp4", 0, square(16, 8)},
    {"track_bgra", "{sight} track --layout bgra {dir}/square.mp4", 0, square(8, 8)},
    {"track_ycbcra", "{sight} track --layout ycbcra {dir}/square.mp4", 0, square(8, 8)},
    {"track_y_cbcr", "{sight} track --layout y_cbcr {dir}/square.mp4", 0, square(16, 16)},
    {"track_planar", "{sight} track --layout planar {dir}/square.mp4", 0, square(16, 16)},
    {"track_stdin", "cat {dir}/pattern.y4m | {sight} track --fields -", 0, lines_of({{"stdin", 20}})},
    {"hotspots", "{sight} hotspots --spots 0,2 --layout bgra {dir}/spot.mkv", 0,
     [](run_result const &r, fs::path const &) {
       ASSERT_EQ(r.lines.size(), 5u);
       for (json const &l : r.lines) EXPECT_EQ(l["detected"], json({1, 0, 2, 0, 0, 0, 0, 0})) << l;
     }},
    {"corners_pattern", "{sight} corners {dir}/pattern.y4m", 0, expect_corners},
    {"corners_bars", "{sight} corners --threshold 10 {dir}/bars.mkv", 0, expect_corners},
    {"corners_stepper", "{sight} corners --threshold 100 --min-corners 30 --max-corners 40 {dir}/pattern.y4m", 0,
     expect_stepping},
    {"decomb", "{sight} decomb {dir}/pattern.y4m -o {dir}/decomb.y4m", 0, expect_decombed},
    {"rescale", "{sight} rescale {dir}/pattern.y4m -o {dir}/rescale.y4m", 0, expect_rescaled},
    {"chamfer", "cd {dir} && {sight} chamfer --frames 2", 0,
     [](run_result const &r, fs::path const &dir) {
       ASSERT_EQ(r.lines.size(), 2u);
       for (json const &l : r.lines) EXPECT_EQ(l["star"], true);
       EXPECT_TRUE(fs::exists(dir / "d:\\temp\\track2.png"));
     }},
    {"chamfer_no_key", "{sight} chamfer {dir}/bars.mkv", 0,
     [](run_result const &r, fs::path const &) {
       for (json const &l : r.lines) EXPECT_EQ(l["star"], false);
     }},
    {"homography", "{sight} homography {dir}/pairs.txt", 0,
     [](run_result const &r, fs::path const &) {
       ASSERT_EQ(r.lines.size(), 1u);
       EXPECT_EQ(r.lines[0]["pairs"], 5);
       float const want[3][3] = {{2, 0, 10}, {0, 3, 10}, {0, 0, 1}};
       for (int i = 0; i < 9; ++i) EXPECT_NEAR(r.lines[0]["matrix"][i / 3][i % 3], want[i / 3][i % 3], 1e-3) << i;
     }},
    {"match_itself", "{sight} match {dir}/pattern.y4m {dir}/pattern.y4m", 0,
     [](run_result const &r, fs::path const &) {
       ASSERT_EQ(r.lines.size(), 1u);
       for (auto [key, want] : {std::pair<char const *, float>{"brightness", 0}, {"contrast", 1}, {"saturation", 1}})
         EXPECT_NEAR(r.lines[0][key], want, 1e-3) << key;
     }},
    {"align", "{sight} align {dir}/pattern.y4m {dir}/bars.mkv --iterations 4", 0,
     [](run_result const &r, fs::path const &) {
       ASSERT_EQ(r.lines.size(), 4u);
       for (int i = 0; i < 4; ++i) EXPECT_EQ(r.lines[i]["iteration"], i);
       EXPECT_GT(r.lines[0]["energy"], 0);
     }},
    {"align_one_picture", "{sight} align {dir}/pattern.y4m", 2, nothing},
    {"bad_pairs", "{sight} homography {dir}/bad_pairs.txt", 2, nothing},
    {"preview_png", "{sight} track --synthetic-frames 3 --preview {dir}/p.png", 0,
     [](run_result const &, fs::path const &dir) {
       for (char const *f : {"p_000000.png", "p_000001.png", "p_000002.png"}) EXPECT_TRUE(fs::exists(dir / f)) << f;
     }},
    {"several_files", "{sight} corners {dir}/pattern.y4m {dir}/missing.mp4 {dir}/bars.mkv", 2,
     lines_of({{"pattern.y4m", 10}, {"bars.mkv", 5}})},
    {"undecodable", "{sight} corners {dir}/garbage.mp4", 2, nothing},
    {"bad_y4m_header", "{sight} corners - < {dir}/zero.y4m", 2, nothing},
    {"truncated_y4m_frame", "{sight} corners - < {dir}/short.y4m", 2, nothing},
    {"unsupported_pixels", "{sight} corners - < {dir}/deep.y4m", 2, nothing},
    {"out_of_range", "{sight} track --tolerance 2", 2, nothing},
    {"malformed_colour", "{sight} hotspots --color 300,0,0", 2, nothing},
    {"help", "{sight} track --help", 0,
     [](run_result const &r, fs::path const &) {
       for (char const *o : {"--color", "--tolerance", "--crop", "--track-rotation", "--fields", "--preview"})
         EXPECT_NE(r.output.find(o), std::string::npos) << o;
     }},
};

INSTANTIATE_TEST_SUITE_P(commands, host_test, testing::ValuesIn(rows),
                         [](testing::TestParamInfo<row> const &i) { return std::string(i.param.name); });

}  // namespace
#endif
