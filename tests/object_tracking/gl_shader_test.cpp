// The tracker's GPU key: the GLSL text through a reference compiler in every
// slot configuration, and the key as Mesa's software renderer draws it
// against the CPU key weight at chosen chroma distances.
#include <sight/frame/variables.h>
#include <sight/object_tracking/object_tracking.h>
#include <sight/object_tracking/object_tracking_data.h>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
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

struct key_settings {
  float r, g, b, tolerance_c, smoothness;
};

object_tracking_data make_data(key_settings const &k) {
  object_tracking_data d;
  d.color().r() = k.r, d.color().g() = k.g, d.color().b() = k.b;
  d.tolerance_c() = k.tolerance_c, d.smoothness() = k.smoothness;
  return d;
}

std::string support_defines(unsigned mask) {
  std::string s;
  for (int n = 0; n < 4; ++n) s += "#define tracking_support_" + std::to_string(n) + ((mask >> n & 1u) ? " 1\n" : " 0\n");
  return s;
}

// Exit status of the reference compiler on one fragment shader.
int validate(std::string const &source, std::string &output) {
  char path[] = "/tmp/sight_gl_shader_XXXXXX.frag";
  int const fd = mkstemps(path, 5);
  if (fd < 0) return -1;
  bool const written = write(fd, source.data(), source.size()) == ssize_t(source.size());
  close(fd);
  int status = -1;
  if (FILE *pipe = written ? popen(("'" SIGHT_GLSLANG_VALIDATOR "' -l '" + std::string(path) + "' 2>&1").c_str(), "r")
                           : nullptr) {
    char buf[512];
    for (std::size_t n; (n = fread(buf, 1, sizeof buf, pipe)) > 0;) output.append(buf, n);
    int const st = pclose(pipe);
    status = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
  }
  unlink(path);
  return status;
}

TEST(gl_compile_test, every_slot_configuration_compiles) {
  EXPECT_STREQ(object_tracking_data::p_GL_vertex_program(), "");
  std::string const text = object_tracking_data::p_GL_fragment_program();
  std::string const main =
      "varying vec3 v_col;\nvoid main() { gl_FragColor = vec4(tracking_alpha_0(v_col), tracking_alpha_1(v_col), "
      "tracking_alpha_2(v_col), tracking_alpha_3(v_col)); }\n";
  for (unsigned mask = 0; mask < 16; ++mask) {
    std::string out;
    EXPECT_EQ(validate("#version 110\n" + support_defines(mask) + text + main, out), 0) << mask << out;
  }
  // A slip in slot 2 is an error exactly when slot 2 is compiled in.
  std::string broken = text, out;
  broken.replace(broken.find("tracking_ref_2_cb_cr_mul_add.rg"), 31, "tracking_ref_2_cb_cr_mul_add.rq");
  EXPECT_NE(validate("#version 110\n" + support_defines(0xF) + broken + main, out), 0);
}

// ---------------------------------------------------------------------------
// A 256 by 256 texture holds (Y, Cb = x, Cr = y, A); the fragment shader
// writes slot N's key to colour channel N. Four trackers fill the four slots
// through one variables table, which the host walks with glUniform4fv.

#if defined(__SANITIZE_ADDRESS__)
// OSMesa keeps a few hundred bytes of every framebuffer it made current.
extern "C" char const *__lsan_default_suppressions() { return "leak:libOSMesa.so\n"; }
#endif

constexpr int k_side = 256;

GLuint compile(GLenum stage, std::string const &source, std::string &log) {
  GLuint const s = glCreateShader(stage);
  char const *p = source.c_str();
  glShaderSource(s, 1, &p, nullptr);
  glCompileShader(s);
  char buf[2048] = {};
  glGetShaderInfoLog(s, sizeof buf, nullptr, buf);
  log += buf;
  return s;
}

class gl_render_test : public testing::TestWithParam<unsigned> {};

TEST_P(gl_render_test, key_matches_the_cpu_weight) {
  unsigned const mask = GetParam();
  // The default key first; the others differ in colour, tolerance and
  // smoothness (the last one's soft edge held at its lower bound).
  key_settings const keys[4] = {{200 / 255.0f, 137 / 255.0f, 119 / 255.0f, 0.7f, 0.3f},
                                {0.1f, 0.8f, 0.2f, 0.4f, 0.5f},
                                {0.2f, 0.3f, 0.9f, 1.2f, 1.0f},
                                {10 / 255.0f, 30 / 255.0f, 5 / 255.0f, 0.3f, 0.0f}};
  std::vector<std::uint8_t> pixels(k_side * k_side * 4);
  int const attribs[] = {OSMESA_FORMAT, OSMESA_RGBA, OSMESA_PROFILE, OSMESA_COMPAT_PROFILE,
                         OSMESA_CONTEXT_MAJOR_VERSION, 3, OSMESA_CONTEXT_MINOR_VERSION, 0, 0};
  OSMesaContext const ctx = OSMesaCreateContextAttribs(attribs, nullptr);
  ASSERT_NE(ctx, nullptr);
  ASSERT_TRUE(OSMesaMakeCurrent(ctx, pixels.data(), GL_UNSIGNED_BYTE, k_side, k_side));

  std::string log;
  GLuint const prog = glCreateProgram();
  glAttachShader(prog, compile(GL_VERTEX_SHADER,
                               "#version 130\nvoid main() { vec2 p = vec2(float((gl_VertexID << 1) & 2), "
                               "float(gl_VertexID & 2));\n gl_Position = vec4(p * 2.0 - 1.0, 0.0, 1.0); }\n",
                               log));
  glAttachShader(prog, compile(GL_FRAGMENT_SHADER,
                               "#version 130\n" + support_defines(mask) + object_tracking_data::p_GL_fragment_program() +
                                   "uniform sampler2D frame;\nvoid main() {\n"
                                   "  vec3 col = texelFetch(frame, ivec2(gl_FragCoord.xy), 0).rgb;\n"
                                   "  gl_FragColor = vec4(tracking_alpha_0(col), tracking_alpha_1(col),\n"
                                   "                      tracking_alpha_2(col), tracking_alpha_3(col));\n}\n",
                               log));
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

  std::vector<std::uint8_t> frame(k_side * k_side * 4);
  for (std::size_t i = 0; i < frame.size(); ++i)
    frame[i] = std::uint8_t(i % 4 == 1 ? i / 4 % k_side : i % 4 == 2 ? i / 4 / k_side : i * 37 % 251);
  GLuint tex = 0;
  glGenTextures(1, &tex);
  glBindTexture(GL_TEXTURE_2D, tex);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
  glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, k_side, k_side, 0, GL_RGBA, GL_UNSIGNED_BYTE, frame.data());
  glUniform1i(glGetUniformLocation(prog, "frame"), 0);
  glViewport(0, 0, k_side, k_side);
  glDrawArrays(GL_TRIANGLES, 0, 3);
  std::vector<std::uint8_t> out(k_side * k_side * 4);
  glReadPixels(0, 0, k_side, k_side, GL_RGBA, GL_UNSIGNED_BYTE, out.data());
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
    int const weights[] = {255, 255, 215, 104, 4, 0, 0};  // the default key's
    int const distances[] = {0, 66, 70, 80, 89, 90, 160};
    for (int i = 0; i < 7; ++i) {
      int const d = distances[i], y = cr + d <= 255 ? cr + d : cr - d;
      if (y < 0) continue;
      int const want = std::clamp(offset - int((unsigned(std::min(d, 255)) * 256u * unsigned(scale)) >> 16), 0, 255);
      if (slot == 0) {
        EXPECT_EQ(want, weights[i]) << "D " << d;
      }
      int const got = out[(y * k_side + cb) * 4 + slot];
      int const expected = mask >> slot & 1u ? want : 255;  // a slot compiled out keys nothing away
      EXPECT_LE(std::abs(got - expected), mask >> slot & 1u ? bound : 0.0)
          << "slot " << slot << " D " << d << ": cpu " << want << ", gpu " << got;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(keys, gl_render_test, testing::Values(0xFu, 0x5u, 0xAu));

}  // namespace
