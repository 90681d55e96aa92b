// The tracker's GPU key: the GLSL text compiled at the oldest language level
// in every slot configuration by Mesa's software renderer, and the key as it
// draws it against the CPU key weight at chosen chroma distances.
#include <sight/frame/variables.h>
#include <sight/object_tracking/object_tracking.h>
#include <sight/object_tracking/object_tracking_data.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#define GL_GLEXT_PROTOTYPES 1  // libOSMesa exports every entry point
#include <GL/gl.h>
#include <GL/glext.h>
#include <GL/osmesa.h>

#include "tracker_access.h"

namespace {

using Korvane::Sight::object_tracking;
using Korvane::Sight::object_tracking_data;
using access = Korvane::Sight::object_tracking_test_access;

#if defined(__SANITIZE_ADDRESS__)
// OSMesa keeps a few hundred bytes of every framebuffer it made current.
extern "C" char const *__lsan_default_suppressions() { return "leak:libOSMesa.so\n"; }
#endif

// The default key first; the others differ in colour, tolerance and
// smoothness (the last one's soft edge held at its lower bound).
struct key_settings { float r, g, b, tolerance_c, smoothness; } const keys[4] = {{200 / 255.0f, 137 / 255.0f, 119 / 255.0f, 0.7f, 0.3f},
                   {0.1f, 0.8f, 0.2f, 0.4f, 0.5f},
                   {0.2f, 0.3f, 0.9f, 1.2f, 1.0f},
                   {10 / 255.0f, 30 / 255.0f, 5 / 255.0f, 0.3f, 0.0f}};

object_tracking_data make_data(key_settings const &k) {
  object_tracking_data d;
  d.color().r() = k.r, d.color().g() = k.g, d.color().b() = k.b;
  d.tolerance_c() = k.tolerance_c, d.smoothness() = k.smoothness;
  return d;
}

// A 256 by 256 texture holds (Y, Cb = x, Cr = y, A); a fragment shader of
// GLSL 1.10 (no implicit conversions) writes slot N's key to colour channel
// N of a full-frame rectangle. Four trackers fill the four slots through one
// variables table, which the host walks with glUniform4fv. The parameter
// says which slots are compiled in.
class gl_render_test : public testing::TestWithParam<unsigned> {};

TEST_P(gl_render_test, key_matches_the_cpu_weight) {
  unsigned const mask = GetParam();
  constexpr int side = 256;
  EXPECT_STREQ(object_tracking_data::p_GL_vertex_program(), "");
  std::vector<std::uint8_t> frame(side * side * 4), out(frame.size());
  int const attribs[] = {OSMESA_FORMAT, OSMESA_RGBA, OSMESA_PROFILE, OSMESA_COMPAT_PROFILE,
                         OSMESA_CONTEXT_MAJOR_VERSION, 3, OSMESA_CONTEXT_MINOR_VERSION, 0, 0};
  OSMesaContext const ctx = OSMesaCreateContextAttribs(attribs, nullptr);
  ASSERT_TRUE(ctx != nullptr && OSMesaMakeCurrent(ctx, out.data(), GL_UNSIGNED_BYTE, side, side));

  std::string source = "#version 110\n";
  for (int n = 0; n < 4; ++n) source += "#define tracking_support_" + std::to_string(n) + (mask >> n & 1u ? " 1\n" : " 0\n");
  source += std::string(object_tracking_data::p_GL_fragment_program()) +
            "uniform sampler2D frame;\nvoid main() {\n  vec3 col = texture2D(frame, gl_FragCoord.xy / 256.0).rgb;\n"
            "  gl_FragColor = vec4(tracking_alpha_0(col), tracking_alpha_1(col),\n"
            "                      tracking_alpha_2(col), tracking_alpha_3(col));\n}\n";
  char const *text = source.c_str();
  char log[2048] = {};
  GLuint const shader = glCreateShader(GL_FRAGMENT_SHADER), prog = glCreateProgram();
  glShaderSource(shader, 1, &text, nullptr);
  glCompileShader(shader);
  glGetShaderInfoLog(shader, sizeof log, nullptr, log);
  glAttachShader(prog, shader);
  glLinkProgram(prog);
  GLint linked = 0;
  glGetProgramiv(prog, GL_LINK_STATUS, &linked);
  ASSERT_TRUE(linked) << log;
  glUseProgram(prog);
  Tamarind::Shaders::program::variables vars;
  for (int slot = 0; slot < 4; ++slot) make_data(keys[slot]).GL_set_shader_values(slot, vars);
  for (int slot : {-1, 4}) make_data(keys[0]).GL_set_shader_values(slot, vars);  // no such uniform: nothing
  ASSERT_EQ(vars.size(), 4u);
  // A slot compiled out has no uniform; glUniform4fv ignores location -1.
  for (auto const &v : vars) glUniform4fv(glGetUniformLocation(prog, v.name()), 1, &v.value()[0]);

  for (std::size_t i = 0; i < frame.size(); ++i)
    frame[i] = std::uint8_t(i % 4 == 1 ? i / 4 % side : i % 4 == 2 ? i / 4 / side : i * 37 % 251);
  GLuint tex = 0;
  glGenTextures(1, &tex), glBindTexture(GL_TEXTURE_2D, tex);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);  // at texel centres magnifying is exact
  glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, side, side, 0, GL_RGBA, GL_UNSIGNED_BYTE, frame.data());
  glUniform1i(glGetUniformLocation(prog, "frame"), 0);
  glViewport(0, 0, side, side);
  glRectf(-1, -1, 1, 1);
  glFinish();
  EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
  OSMesaMakeCurrent(nullptr, nullptr, 0, 0, 0);
  OSMesaDestroyContext(ctx);

  for (int slot = 0; slot < 4; ++slot) {
    object_tracking t;
    static_cast<object_tracking_data &>(t) = make_data(keys[slot]);
    access::setup(t, 8, 8, 1, 1);
    int const cb = access::key_cbcr(t)[0], cr = access::key_cbcr(t)[1];
    int const scale = access::key_scale(t)[0], offset = access::key_offset(t)[0];
    // The CPU key reads reference chroma rounded to whole steps; the GPU's
    // is a float. Allow 2.5 steps plus the ramp's move by that rounding.
    glm::vec4 const ref = object_tracking::g_rgb_to_ycbcr * glm::vec4(keys[slot].r, keys[slot].g, keys[slot].b, 1.0f);
    double const ref_error = std::fabs(std::clamp(ref[1], 0.0f, 1.0f) * 255.0 - cb) +
                             std::fabs(std::clamp(ref[2], 0.0f, 1.0f) * 255.0 - cr);
    double const bound = 2.5 + scale / 256.0 * ref_error;
    // Chroma distances, and the default key's weights at them.
    int const distances[] = {0, 66, 70, 80, 89, 90, 160}, weights[] = {255, 255, 215, 104, 4, 0, 0};
    for (int i = 0; i < 7; ++i) {
      int const d = distances[i], y = cr + d <= 255 ? cr + d : cr - d;
      if (y < 0) continue;
      int const want = std::clamp(offset - int((unsigned(std::min(d, 255)) * 256u * unsigned(scale)) >> 16), 0, 255);
      EXPECT_TRUE(slot != 0 || want == weights[i]) << "D " << d << ": " << want;
      int const got = out[(y * side + cb) * 4 + slot];
      int const expected = mask >> slot & 1u ? want : 255;  // a slot compiled out keys nothing away
      EXPECT_LE(std::abs(got - expected), mask >> slot & 1u ? bound : 0.0)
          << "slot " << slot << " D " << d << ": cpu " << want << ", gpu " << got;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(keys, gl_render_test, testing::Range(0u, 16u));

}  // namespace
