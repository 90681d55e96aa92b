#include "commands.h"

#include "media.h"

#include <array>
#include <cmath>
#include <initializer_list>
#include <iostream>

#include <cstring>
#include <fstream>
#include <sstream>

#include <sight/color_matching/color_matching.h>
#include <sight/corner/detection.h>
#include <sight/corner/threshold.h>
#include <sight/hot_spots/hot_spots.h>
#include <sight/object_tracking/object_tracking.h>
#include <sight/object_tracking_2/object_tracking_2.h>
#include <sight/perspective/perspective.h>
#include <sight/super_resolution/y_x2.h>

namespace sight_host {

namespace {

rgb to_rgb(float r, float g, float b) {
  auto byte = [](float v) { return std::uint8_t(v <= 0 ? 0 : v >= 1 ? 255 : int(v * 255.0f + 0.5f)); };
  return rgb{byte(r), byte(g), byte(b)};
}

json pair(glm::vec2 v) { return json::array({v.x, v.y}); }

// Draws the outline of the parallelogram centre +- a +- b (picture units).
void draw_box(video::field_views &v, float aspect, int width, glm::vec2 centre, glm::vec2 a, glm::vec2 b, rgb c,
              bool cross) {
  std::array<glm::vec2, 4> const p = {centre - a - b, centre + a - b, centre + a + b, centre - a + b};
  int x[4], y[4];
  for (int i = 0; i < 4; ++i) to_pixels(p[i].x, p[i].y, aspect, width, v.height, x[i], y[i]);
  for (int i = 0; i < 4; ++i) draw_line(v, x[i], y[i], x[(i + 1) % 4], y[(i + 1) % 4], c.r, c.g, c.b);
  if (cross) {
    draw_line(v, x[0], y[0], x[2], y[2], c.r, c.g, c.b);
    draw_line(v, x[1], y[1], x[3], y[3], c.r, c.g, c.b);
  }
}

std::initializer_list<bool> const kWhole = {false}, kBoth = {false, true};

class track_command : public command {
 public:
  explicit track_command(options const &o) : fields_(o.common.fields), matte_(o.track.matte) {
    track_options const &t = o.track;
    tracker_ = std::make_unique<S::object_tracking>(t.moment_bias);
    S::object_tracking &k = *tracker_;
    k.enabled() = true;
    k.color().r() = t.color.r / 255.0f;
    k.color().g() = t.color.g / 255.0f;
    k.color().b() = t.color.b / 255.0f;
    k.tolerance_c() = t.tolerance;
    k.smoothness() = t.smoothness;
    if (t.crop.size() == 4) {
      k.cropping().left() = t.crop[0];
      k.cropping().right() = t.crop[1];
      k.cropping().top() = t.crop[2];
      k.cropping().bottom() = t.crop[3];
    }
    k.constraints().track_rotation() = t.track_rotation;
    k.constraints().track_size() = t.track_size;
    k.constraints().track_aspect() = t.track_aspect;
    k.constraints().size() = t.size;
    k.constraints().aspect_ratio() = t.box_aspect;
    k.minimum_size() = t.minimum_size;
  }

  void run(picture &frame, std::vector<json> &entries, picture_sink const &out) override {
    S::object_tracking &k = *tracker_;
    k.preview() = S::object_tracking_data::e_preview_type(out ? (matte_ ? 3 : 2) : 0);
    video::message const m = frame.message(fields_);
    for (bool lower : fields_ ? kBoth : kWhole) {
      S::object_tracking_info const info = k(&m, lower);
      json e;
      if (fields_) e["field"] = int(lower);
      e["object_detected"] = int(info.object_detected());
      e["centre"] = pair(info.centre());
      e["x_axis"] = pair(info.x_axis());
      e["y_axis"] = pair(info.y_axis());
      entries.push_back(std::move(e));
      if (out && info.object_detected() == S::object_found) {
        video::field_views v = video::field_views::make(m, lower);
        draw_box(v, frame.aspect, frame.width, info.centre(), info.x_axis(), info.y_axis(), rgb{255, 255, 0}, false);
      }
    }
    if (out) out(frame);
  }

 private:
  bool fields_, matte_;
  std::unique_ptr<S::object_tracking> tracker_;  // 16-byte aligned by its type
};

class hotspots_command : public command {
 public:
  explicit hotspots_command(options const &o) : fields_(o.common.fields) {
    hotspots_options const &h = o.hotspots;
    spots_ = std::make_unique<S::hot_spots>();
    S::hot_spots &s = *spots_;
    s.enabled() = true;
    s.color().r() = h.color.r / 255.0f;
    s.color().g() = h.color.g / 255.0f;
    s.color().b() = h.color.b / 255.0f;
    s.tolerance_c() = h.tolerance;
    s.smoothness() = h.smoothness;
    s.threshold() = h.threshold;
    if (h.crop.size() == 4) {
      s.cropping().left() = h.crop[0];
      s.cropping().right() = h.crop[1];
      s.cropping().top() = h.crop[2];
      s.cropping().bottom() = h.crop[3];
    }
    for (int i = 0; i < s.size_spots(); ++i) {
      s.spots(i).enabled() = h.spots.empty();
      if (h.spot_size > 0) s.spots(i).size() = h.spot_size;
    }
    for (int i : h.spots) s.spots(i).enabled() = true;
  }

  void run(picture &frame, std::vector<json> &entries, picture_sink const &out) override {
    S::hot_spots &s = *spots_;
    video::message const m = frame.message(fields_);
    for (bool lower : fields_ ? kBoth : kWhole) {
      S::hot_spots_info const info = s(&m, lower);
      json e;
      if (fields_) e["field"] = int(lower);
      json detected = json::array();
      for (int i = 0; i < info.size_detected(); ++i) detected.push_back(int(info.detected(i)));
      e["detected"] = std::move(detected);
      entries.push_back(std::move(e));
      if (!out) continue;
      video::field_views v = video::field_views::make(m, lower);
      for (int i = 0; i < s.size_spots(); ++i) {
        if (!s.spots(i).enabled()) continue;
        glm::vec3 const c = S::hot_spots_data::preview_color(i);
        float const size = s.spots(i).size();
        draw_box(v, frame.aspect, frame.width, glm::vec2(s.spots(i).x(), s.spots(i).y()), glm::vec2(size, 0),
                 glm::vec2(0, size), to_rgb(c.r, c.g, c.b), info.detected(i) == S::object_found);
      }
    }
    if (out) out(frame);
  }

 private:
  bool fields_;
  std::unique_ptr<S::hot_spots> spots_;
};

class corners_command : public command {
 public:
  explicit corners_command(options const &o) : stepper_(detector_) {
    corners_options const &c = o.corners;
    detector_.threshold() = c.threshold;
    stepping_ = c.min_corners >= 0 || c.max_corners >= 0;
    stepper_.minimum_corners = c.min_corners >= 0 ? c.min_corners : 0;
    stepper_.maximum_corners = c.max_corners >= 0 ? c.max_corners : 1 << 30;
  }

  void run(picture &frame, std::vector<json> &entries, picture_sink const &out) override {
    int const threshold = detector_.threshold();
    detector_ = frame.ycbcr;
    json e;
    e["corners"] = int(detector_);
    e["threshold"] = threshold;
    entries.push_back(std::move(e));
    if (stepping_) ++stepper_;
    if (out) {
      detector_.viz(frame.ycbcr);
      out(frame);
    }
  }

 private:
  S::corner::detection detector_;
  S::corner::threshold stepper_;
  bool stepping_;
};

class chamfer_command : public command {
 public:
  explicit chamfer_command(options const &o) {
    tracker_ = std::make_unique<S::object_tracking_2>();
    S::object_tracking_2 &k = *tracker_;
    k.enabled() = true;
    k.color().r() = o.chamfer.color.r / 255.0f;
    k.color().g() = o.chamfer.color.g / 255.0f;
    k.color().b() = o.chamfer.color.b / 255.0f;
    k.tolerance() = o.chamfer.tolerance;
  }
  ~chamfer_command() override { Tamarind::Rasters::release(before_); }

  // The operator reports nothing but draws its star into the frame: the
  // entry tells whether it drew, found by comparing the frame with a copy.
  void run(picture &frame, std::vector<json> &entries, picture_sink const &out) override {
    S::ycbcr_bitmap &f = frame.ycbcr;
    if (!Tamarind::Rasters::allocate(before_, f.width, f.height)) throw std::bad_alloc();
    Tamarind::Rasters::copy(before_, f);
    (*tracker_)(f, frame.aspect);
    bool drawn = false;
    for (int y = 0; y < f.height && !drawn; ++y)
      drawn = std::memcmp(Tamarind::Rasters::line(f, y), Tamarind::Rasters::line(before_, y),
                          std::size_t(Tamarind::Rasters::line_bytes(f))) != 0;
    entries.push_back(json{{"star", drawn}});
    if (out) out(frame);
  }

 private:
  std::unique_ptr<S::object_tracking_2> tracker_;
  S::ycbcr_bitmap before_{};
};

// Calls f(source plane, destination plane) for each plane of the layout.
template <class F>
void for_planes(video::field_views &a, video::field_views &b, F const &f) {
  switch (a.format) {
    case video::format_bgra: f(a.bgra, b.bgra); break;
    case video::format_ycbcra: f(a.ycbcra, b.ycbcra); break;
    case video::format_y_cbcr:
      f(a.y, b.y);
      f(a.cbcr, b.cbcr);
      break;
    case video::format_planar:
      f(a.y, b.y);
      f(a.cb, b.cb);
      f(a.cr, b.cr);
      break;
    default: f(a.ycbcr, b.ycbcr); break;
  }
}

using S::super_resolution::y_x2;

class rescale_command : public command {
 public:
  explicit rescale_command(options const &o) {
    std::string const &f = o.rescale.field;
    if (f != "1") fields_.push_back(false);
    if (f != "0") fields_.push_back(true);
  }

  void run(picture &frame, std::vector<json> &entries, picture_sink const &out) override {
    video::message const m = frame.message(true);
    if (!result_.allocate(frame.format, frame.width, frame.height / 2 * 2)) throw std::bad_alloc();
    result_.aspect = frame.aspect;
    video::message const r = result_.message(false);
    video::field_views whole = video::field_views::make(r, false);
    for (bool lower : fields_) {
      video::field_views field = video::field_views::make(m, lower);
      for_planes(field, whole, [&](auto const &s, auto &d) { y_x2::rescale(s, d, !lower); });
      entries.push_back(json{{"field", int(lower)}});
      if (out) out(result_);
    }
  }

  double rate_factor() const override { return double(fields_.size()); }

 private:
  std::vector<bool> fields_;
  picture result_;
};

class decomb_command : public command {
 public:
  void run(picture &frame, std::vector<json> &entries, picture_sink const &out) override {
    if (!result_.allocate(frame.format, frame.width, frame.height)) throw std::bad_alloc();
    result_.aspect = frame.aspect;
    video::message const m = frame.message(false), r = result_.message(false);
    video::field_views source = video::field_views::make(m, false), target = video::field_views::make(r, false);
    for_planes(source, target, [](auto const &s, auto &d) { y_x2::decomb(s, d); });
    entries.push_back(json::object());
    if (out) out(result_);
  }

 private:
  picture result_;
};

}  // namespace

void set_defaults(options &o) {
  using tracking = S::object_tracking_data;
  track_options &t = o.track;
  t.color = to_rgb(tracking::color_data_type::default_r(), tracking::color_data_type::default_g(),
                   tracking::color_data_type::default_b());
  t.tolerance = tracking::default_tolerance_c();
  t.smoothness = tracking::default_smoothness();
  t.track_rotation = tracking::constraints_data_type::default_track_rotation();
  t.track_size = tracking::constraints_data_type::default_track_size();
  t.track_aspect = tracking::constraints_data_type::default_track_aspect();
  t.size = tracking::constraints_data_type::default_size();
  t.box_aspect = tracking::constraints_data_type::default_aspect_ratio();
  t.minimum_size = tracking::default_minimum_size();
  using spots = S::hot_spots_data;
  hotspots_options &h = o.hotspots;
  h.color = to_rgb(spots::color_data_type::default_r(), spots::color_data_type::default_g(),
                   spots::color_data_type::default_b());
  h.tolerance = spots::default_tolerance_c();
  h.smoothness = spots::default_smoothness();
  h.threshold = spots::default_threshold();
  S::corner::detection const detector;
  o.corners.threshold = detector.threshold();
  using chamfer = S::object_tracking_2_data;
  o.chamfer.color = to_rgb(chamfer::color_data_type::default_r(), chamfer::color_data_type::default_g(),
                           chamfer::color_data_type::default_b());
  o.chamfer.tolerance = chamfer::default_tolerance();
}

json homography(std::string const &file) {
  std::ifstream stream;
  if (file != "-") {
    stream.open(file);
    if (!stream) throw media_error("cannot open the file of point pairs");
  }
  std::istream &in = file == "-" ? std::cin : stream;
  S::perspective estimate;
  int pairs = 0, number = 0;
  for (std::string line; std::getline(in, line);) {
    ++number;
    line = line.substr(0, line.find('#'));
    std::istringstream fields(line);
    float v[5] = {0, 0, 0, 0, 1};
    int n = 0;
    while (n < 5 && fields >> v[n]) ++n;
    std::string rest;
    if (n == 0 && !(fields.clear(), fields >> rest)) continue;  // blank or comment
    if ((n != 4 && n != 5) || !fields.eof() || !std::isfinite(v[0] + v[1] + v[2] + v[3] + v[4]))
      throw media_error("line " + std::to_string(number) + ": expected 'x y u v [weight]'");
    estimate.add(v[4], {glm::vec2(v[0], v[1]), glm::vec2(v[2], v[3])});
    ++pairs;
  }
  glm::mat3 const m = estimate;
  json rows = json::array();
  for (int r = 0; r < 3; ++r) rows.push_back(json::array({m[0][r], m[1][r], m[2][r]}));
  return json{{"file", file}, {"pairs", pairs}, {"matrix", std::move(rows)}};
}

namespace {

// The first frame of an input as 4:2:2.
void first_frame(std::string const &name, picture &p) {
  p.format = video::format_422;
  double time;
  try {
    if (!open_source(name, 0, 1)->next(p, time)) throw media_error("no frame");
  } catch (std::runtime_error const &e) {
    throw media_error(name + ": " + e.what());
  }
}

std::uint8_t to_byte(float v) { return std::uint8_t(v <= 0 ? 0 : v >= 255 ? 255 : int(v + 0.5f)); }

}  // namespace

json match(std::string const &picture_name, std::string const &reference_name, std::string const &preview) {
  picture p, r;
  first_frame(picture_name, p);
  first_frame(reference_name, r);
  S::color_matching const m(p.ycbcr, r.ycbcr, false);
  if (!preview.empty()) {  // the procamp applied with the settings found
    for (int y = 0; y < p.height; ++y) {
      Tamarind::Rasters::pixel_ycbcr_u8 *line = Tamarind::Rasters::line(p.ycbcr, y);
      for (int x = 0; x < (p.width + 1) / 2; ++x) {
        auto luma = [&](std::uint8_t v) { return to_byte(m.contrast() * (v / 255.0f + m.brightness()) * 255); };
        auto chroma = [&](std::uint8_t v, float offset) {
          return to_byte((m.saturation() * (v / 255.0f + offset - 0.5f) + 0.5f) * 255);
        };
        Tamarind::Rasters::pixel_ycbcr_u8 &q = line[x];
        q = {chroma(q.cb, m.u_offset()), luma(q.y0), chroma(q.cr, m.v_offset()), luma(q.y1)};
      }
    }
    writer w(preview, 1);
    w.write(p);
    w.close();
  }
  return json{{"picture", picture_name}, {"reference", reference_name}, {"brightness", m.brightness()},
              {"contrast", m.contrast()}, {"saturation", m.saturation()}, {"u_offset", m.u_offset()},
              {"v_offset", m.v_offset()}};
}

std::unique_ptr<command> make_command(options const &o) {
  if (o.command == "track") return std::make_unique<track_command>(o);
  if (o.command == "hotspots") return std::make_unique<hotspots_command>(o);
  if (o.command == "corners") return std::make_unique<corners_command>(o);
  if (o.command == "rescale") return std::make_unique<rescale_command>(o);
  if (o.command == "chamfer") return std::make_unique<chamfer_command>(o);
  return std::make_unique<decomb_command>();
}

}  // namespace sight_host
