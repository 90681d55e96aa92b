// The tracker's GPU key: the GLSL text as a real compiler sees it for every
// slot configuration, the uniform values from the settings, and the key as
// Mesa's software renderer draws it, against the CPU key weight.
#include <sight/frame/variables.h>
#include <sight/object_tracking/object_tracking.h>
#include <sight/object_tracking/object_tracking_data.h>

#include "tracker_access.h"

#include <gtest/gtest.h>
#include <sys/wait.h>  // WIFEXITED of the validator's status
#include <unistd.h>   // mkstemps, write, close, unlink

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ostream>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <glm/mat4x4.hpp>
#include <glm/vec4.hpp>

#ifdef SIGHT_HAVE_OSMESA
#define GL_GLEXT_PROTOTYPES 1  // the test links libOSMesa, which exports every entry point
#include <GL/osmesa.h>
#include <GL/gl.h>
#include <GL/glext.h>
#endif

namespace {

using Korvane::Sight::object_tracking;
using Korvane::Sight::object_tracking_data;
using Tamarind::Shaders::program::variables;

// One tracker's settings as far as the key is concerned.
struct key_settings {
  float r, g, b, tolerance_c, smoothness;
};

object_tracking_data make_data(key_settings const &k) {
  object_tracking_data d;
  d.color().r() = k.r, d.color().g() = k.g, d.color().b() = k.b;
  d.tolerance_c() = k.tolerance_c, d.smoothness() = k.smoothness;
  return d;
}

std::string uniform_name(int slot) { return "tracking_ref_" + std::to_string(slot) + "_cb_cr_mul_add"; }

glm::vec4 uniform_of(key_settings const &k, int slot) {
  variables vars;
  make_data(k).GL_set_shader_values(slot, vars);
  auto const *v = vars.find(uniform_name(slot).c_str());
  if (v == nullptr) return glm::vec4(NAN);
  return v->value();
}

// The CPU key exactly as the tracker's frame set-up makes it: reference
// chroma as whole 8-bit steps, and the key curve in fixed point.
struct cpu_key {
  int cb, cr;
  int scale, offset;
};

cpu_key tracker_key(key_settings const &k) {
  using access = Korvane::Sight::object_tracking_test_access;
  object_tracking t;
  static_cast<object_tracking_data &>(t) = make_data(k);
  access::setup(t, 8, 8, 1, 1);
  return {access::key_cbcr(t)[0], access::key_cbcr(t)[1], access::key_scale(t)[0], access::key_offset(t)[0]};
}

// Weight 0..255 of a sample of chroma (cb, cr).
int cpu_weight(cpu_key const &key, int cb, int cr) {
  unsigned d = static_cast<unsigned>(std::abs(key.cb - cb) + std::abs(key.cr - cr));
  d = std::min(d, 255u);
  int const t = static_cast<int>((d * 256u * static_cast<unsigned>(key.scale)) >> 16);
  return std::min(std::max(key.offset - t, 0), 255);
}

// ---------------------------------------------------------------------------
// The text through a GLSL reference compiler, wrapped as a host wraps it:
// each tracking_support_N defined both ways, in a desktop and an ES profile.
// The linked program's active uniforms must be exactly those of the slots
// switched on: a slot at 0 compiles to 1.0 and leaves its uniform unused.

struct glsl_profile {
  char const *head;  // from #version up to where the host pastes the macros
  char const *main;  // after the text; reads col from an input so nothing folds away
};

glsl_profile const g_profiles[] = {
    {"#version 110\n", "varying vec3 v_col;\n"
                       "void main() { gl_FragColor = vec4(tracking_alpha_0(v_col), "
                       "tracking_alpha_1(v_col), tracking_alpha_2(v_col), tracking_alpha_3(v_col)); }\n"},
    // ES has no default float precision in a fragment shader: the host sets one.
    {"#version 300 es\nprecision highp float;\n",
     "in vec3 v_col;\nout vec4 o_key;\n"
     "void main() { o_key = vec4(tracking_alpha_0(v_col), tracking_alpha_1(v_col), "
     "tracking_alpha_2(v_col), tracking_alpha_3(v_col)); }\n"},
};

std::string support_defines(unsigned mask) {
  std::string s;
  for (int n = 0; n < 4; ++n)
    s += "#define tracking_support_" + std::to_string(n) + ((mask >> n & 1u) ? " 1\n" : " 0\n");
  return s;
}

struct validator_run {
  int status = -1;
  std::string output;
};

#ifdef SIGHT_GLSLANG_VALIDATOR
// Compiles and links one fragment shader and dumps its reflection.
validator_run run_validator(std::string const &source) {
  char path[] = "/tmp/sight_gl_shader_XXXXXX.frag";
  int const fd = mkstemps(path, 5);
  if (fd < 0) return {};
  bool const written = write(fd, source.data(), source.size()) == static_cast<ssize_t>(source.size());
  close(fd);
  validator_run run;
  if (written) {
    std::string const cmd = std::string("'") + SIGHT_GLSLANG_VALIDATOR + "' -l -q '" + path + "' 2>&1";
    if (FILE *pipe = popen(cmd.c_str(), "r")) {
      char buf[512];
      for (std::size_t n; (n = fread(buf, 1, sizeof buf, pipe)) > 0;) run.output.append(buf, n);
      int const st = pclose(pipe);
      run.status = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
    }
  }
  unlink(path);
  return run;
}

// Uniform names listed under "Uniform reflection:" up to the next section.
std::set<std::string> reflected_uniforms(std::string const &out) {
  std::set<std::string> names;
  std::istringstream in(out);
  bool inside = false;
  for (std::string line; std::getline(in, line);) {
    if (line == "Uniform reflection:") {
      inside = true;
    } else if (inside) {
      auto const colon = line.find(':');
      if (line.empty() || colon == std::string::npos || line.find("reflection") != std::string::npos) break;
      names.insert(line.substr(0, colon));
    }
  }
  return names;
}

TEST(gl_compile_test, each_slot_compiles_on_and_off_and_uses_its_uniform) {
  EXPECT_STREQ(object_tracking_data::p_GL_vertex_program(), "");
  std::string const text = object_tracking_data::p_GL_fragment_program();
  for (glsl_profile const &p : g_profiles)
    for (unsigned mask : {0x0u, 0x5u, 0xAu, 0xFu}) {
      validator_run const run = run_validator(p.head + support_defines(mask) + text + p.main);
      ASSERT_EQ(run.status, 0) << p.head << "support mask " << mask << ":\n" << run.output;
      std::set<std::string> want;
      for (int n = 0; n < 4; ++n)
        if (mask >> n & 1u) want.insert(uniform_name(n));
      EXPECT_EQ(reflected_uniforms(run.output), want) << p.head << "support mask " << mask << ":\n" << run.output;
    }
  // The harness can fail: a slip in slot 2 is an error exactly when slot 2
  // is compiled in.
  std::string broken = text;
  std::string const good = uniform_name(2) + ".rg";
  auto const at = broken.find(good);
  ASSERT_NE(at, std::string::npos);
  broken.replace(at, good.size(), uniform_name(2) + ".rq");
  glsl_profile const &p = g_profiles[0];
  EXPECT_NE(run_validator(p.head + support_defines(0xF) + broken + p.main).status, 0);
  EXPECT_EQ(run_validator(p.head + support_defines(0xB) + broken + p.main).status, 0);
}
#else
TEST(gl_compile_test, each_slot_compiles_on_and_off_and_uses_its_uniform) {
  GTEST_SKIP() << "glslangValidator was not found when the tests were configured";
}
#endif

// ---------------------------------------------------------------------------
// Uniform values: worked numbers and edge cases, each row once.

TEST(gl_values_test, worked_numbers) {
  struct row {
    char const *name;
    key_settings k;
    float cb, cr, mul, add;  // NAN: not checked in this row
    float eps_chroma, eps_key;
  };
  float const r0 = 200 / 255.0f, g0 = 137 / 255.0f, b0 = 119 / 255.0f;
  row const rows[] = {
      // Default settings: tol 0.35, soft 0.09, given to the digits shown.
      {"defaults", {r0, g0, b0, 0.7f, 0.3f}, 0.434f, 0.615f, 11.1f, 3.89f, 6e-4f, 0.02f},
      // No tolerance: add is exactly 0, so the key is 0 everywhere; a
      // negative tolerance is the same.
      {"tolerance_0", {r0, g0, b0, 0.0f, 0.3f}, NAN, NAN, 1 / 0.09f, 0.0f, 0.0f, 1e-3f},
      {"tolerance_negative", {r0, g0, b0, -0.5f, 0.3f}, NAN, NAN, 1 / 0.09f, 0.0f, 0.0f, 1e-3f},
      // No smoothness: soft is held at 0.01, so mul is about 100; so is any
      // smoothness below 1/30.
      {"smoothness_0", {r0, g0, b0, 0.7f, 0.0f}, NAN, NAN, 100.0f, 35.0f, 0.0f, 0.01f},
      {"smoothness_0.033", {r0, g0, b0, 0.7f, 0.033f}, NAN, NAN, 100.0f, 35.0f, 0.0f, 0.01f},
      // Black and white sit at chroma 0.502.
      {"black", {0.0f, 0.0f, 0.0f, 0.7f, 0.3f}, 0.502f, 0.502f, NAN, NAN, 1e-6f, 0.0f},
      {"white", {1.0f, 1.0f, 1.0f, 0.7f, 0.3f}, 0.502f, 0.502f, NAN, NAN, 1e-5f, 0.0f},
      // Colours outside the RGB cube: chroma clamped into 0..1.
      {"red_2", {2.0f, 0.0f, 0.0f, 0.7f, 0.3f}, 0.206f, 1.0f, NAN, NAN, 1e-5f, 0.0f},
      {"green_2", {0.0f, 2.0f, 0.0f, 0.7f, 0.3f}, 0.0f, 0.0f, NAN, NAN, 0.0f, 0.0f},
      {"blue_2", {0.0f, 0.0f, 2.0f, 0.7f, 0.3f}, 1.0f, 0.360f, NAN, NAN, 1e-5f, 0.0f},
  };
  for (row const &c : rows) {
    glm::vec4 const v = uniform_of(c.k, 1);
    float const want[4] = {c.cb, c.cr, c.mul, c.add};
    for (int i = 0; i < 4; ++i)
      if (!std::isnan(want[i])) {
        EXPECT_NEAR(v[i], want[i], i < 2 ? c.eps_chroma : c.eps_key) << c.name << " [" << i << "]";
      }
  }
}

// The text has slots 0 to 3 only: any other slot sets nothing at all.
TEST(gl_values_test, slots_outside_the_text_write_nothing) {
  key_settings const k{0.5f, 0.5f, 0.5f, 0.7f, 0.3f};
  variables vars;
  for (int slot : {-1, 4, 1000}) make_data(k).GL_set_shader_values(slot, vars);
  EXPECT_EQ(vars.size(), 0u);
  make_data(k).GL_set_shader_values(3, vars);
  EXPECT_EQ(vars.size(), 1u);
}

// ---------------------------------------------------------------------------
// The key drawn by Mesa's software renderer. A 256 by 256 texture of Y, Cb,
// Cr, A pixels holds every pair (Cb, Cr) = (x, y), with random luma and
// alpha, and the fragment shader writes slot N's key to colour channel N.
// Four trackers feed the four slots through one variables table, which the
// host side walks with glUniform4fv by name.

#ifdef SIGHT_HAVE_OSMESA

}  // namespace

#if defined(__SANITIZE_ADDRESS__)
// OSMesa keeps a few hundred bytes of every framebuffer it made current even
// after the context is destroyed; that is Mesa's, not ours.
extern "C" char const *__lsan_default_suppressions() { return "leak:libOSMesa.so\n"; }
#endif

namespace {

constexpr int k_side = 256;

char const g_vertex_source[] =
    "#version 130\n"
    "void main() {\n"
    "  vec2 p = vec2(float((gl_VertexID << 1) & 2), float(gl_VertexID & 2));\n"
    "  gl_Position = vec4(p * 2.0 - 1.0, 0.0, 1.0);\n"
    "}\n";

char const g_fragment_main[] =
    "uniform sampler2D frame;\n"
    "void main() {\n"
    "  vec3 col = texelFetch(frame, ivec2(gl_FragCoord.xy), 0).rgb;\n"
    "  gl_FragColor = vec4(tracking_alpha_0(col), tracking_alpha_1(col),\n"
    "                      tracking_alpha_2(col), tracking_alpha_3(col));\n"
    "}\n";

// A compatibility context drawing into memory of our own, 256 by 256 RGBA.
struct osmesa_target {
  std::vector<std::uint8_t> pixels = std::vector<std::uint8_t>(k_side * k_side * 4);
  OSMesaContext ctx = nullptr;
  std::string error;

  osmesa_target() {
    int const attribs[] = {OSMESA_FORMAT, OSMESA_RGBA, OSMESA_DEPTH_BITS, 0, OSMESA_STENCIL_BITS, 0,
                           OSMESA_ACCUM_BITS, 0, OSMESA_PROFILE, OSMESA_COMPAT_PROFILE,
                           OSMESA_CONTEXT_MAJOR_VERSION, 3, OSMESA_CONTEXT_MINOR_VERSION, 0, 0};
    ctx = OSMesaCreateContextAttribs(attribs, nullptr);
    if (ctx == nullptr) error = "OSMesaCreateContextAttribs failed (compatibility profile, GL 3.0)";
    else if (!OSMesaMakeCurrent(ctx, pixels.data(), GL_UNSIGNED_BYTE, k_side, k_side)) error = "OSMesaMakeCurrent failed";
  }
  ~osmesa_target() {
    if (ctx == nullptr) return;
    OSMesaMakeCurrent(nullptr, nullptr, 0, 0, 0);  // release our buffer first
    OSMesaDestroyContext(ctx);
  }
  osmesa_target(osmesa_target const &) = delete;
  osmesa_target &operator=(osmesa_target const &) = delete;
};

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

struct render_case {
  char const *name;
  key_settings keys[4];
  unsigned support_mask;
};

// Colours (10, 30, 5) / 255 and (25, 60, 55) / 255 have their reference
// chroma within 0.01 of whole 8-bit steps, so that the CPU key's integer
// reference is nearly the GPU's float one: their hard edges are comparable
// step by step. Elsewhere the rounding of the reference shifts the CPU ramp.
#define SIGHT_VARIED                                                                                       \
  {{200 / 255.0f, 137 / 255.0f, 119 / 255.0f, 0.7f, 0.3f}, {0.1f, 0.8f, 0.2f, 0.4f, 0.5f},                 \
   {0.2f, 0.3f, 0.9f, 1.2f, 1.0f}, {10 / 255.0f, 30 / 255.0f, 5 / 255.0f, 0.3f, 0.0f}}
#define SIGHT_EDGES                                                                                        \
  {{0.5f, 0.5f, 0.5f, 0.0f, 0.3f}, {25 / 255.0f, 60 / 255.0f, 55 / 255.0f, 0.25f, 0.05f},                  \
   {0.5f, 0.5f, 0.5f, -0.5f, 0.3f}, {2.0f, 0.0f, 0.0f, 0.9f, 0.4f}}

render_case const g_render_cases[] = {
    {"varied_all_on", SIGHT_VARIED, 0xF},
    {"varied_1_and_3_on", SIGHT_VARIED, 0xA},
    {"edges_all_on", SIGHT_EDGES, 0xF},
    {"edges_0_and_2_on", SIGHT_EDGES, 0x5},
};
#undef SIGHT_VARIED
#undef SIGHT_EDGES

void PrintTo(render_case const &c, std::ostream *os) { *os << c.name; }

class gl_render_test : public testing::TestWithParam<render_case> {};

TEST_P(gl_render_test, key_matches_cpu_weight) {
  render_case const &c = GetParam();
  osmesa_target target;
  ASSERT_TRUE(target.error.empty()) << "no software GL context: " << target.error;

  // Host side: build the program with the library's text inside.
  std::string log;
  GLuint const prog = glCreateProgram();
  glAttachShader(prog, compile(GL_VERTEX_SHADER, g_vertex_source, log));
  glAttachShader(prog, compile(GL_FRAGMENT_SHADER,
                                  "#version 130\n" + support_defines(c.support_mask) +
                                      object_tracking_data::p_GL_fragment_program() + g_fragment_main,
                                  log));
  glLinkProgram(prog);
  GLint linked = 0;
  glGetProgramiv(prog, GL_LINK_STATUS, &linked);
  char link_log[2048] = {};
  glGetProgramInfoLog(prog, sizeof link_log, nullptr, link_log);
  ASSERT_TRUE(linked) << log << link_log;
  glUseProgram(prog);

  // Uniforms: every tracker writes its slot, the host walks the table. An
  // active slot's uniform exists under the table's name; an inactive one is
  // compiled out and reports -1, which glUniform4fv ignores.
  variables vars;
  for (int slot = 0; slot < 4; ++slot) make_data(c.keys[slot]).GL_set_shader_values(slot, vars);
  ASSERT_EQ(vars.size(), 4u);
  for (auto const &v : vars) glUniform4fv(glGetUniformLocation(prog, v.name()), 1, &v.value()[0]);
  for (int slot = 0; slot < 4; ++slot)
    EXPECT_EQ(glGetUniformLocation(prog, uniform_name(slot).c_str()) != -1, bool(c.support_mask >> slot & 1u))
        << "slot " << slot;

  // The frame: texel (x, y) is (Y, Cb = x, Cr = y, A), luma and alpha random.
  std::mt19937 rng(0x5eed + c.support_mask);
  std::vector<std::uint8_t> frame(k_side * k_side * 4);
  for (std::size_t i = 0; i < frame.size(); ++i)
    frame[i] = std::uint8_t(i % 4 == 1 ? i / 4 % k_side : i % 4 == 2 ? i / 4 / k_side : rng());
  GLuint tex = 0;
  glGenTextures(1, &tex);
  glBindTexture(GL_TEXTURE_2D, tex);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
  glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
  glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, k_side, k_side, 0, GL_RGBA, GL_UNSIGNED_BYTE, frame.data());
  glUniform1i(glGetUniformLocation(prog, "frame"), 0);
  glViewport(0, 0, k_side, k_side);
  glClear(GL_COLOR_BUFFER_BIT);
  glDrawArrays(GL_TRIANGLES, 0, 3);
  std::vector<std::uint8_t> out(k_side * k_side * 4);
  glPixelStorei(GL_PACK_ALIGNMENT, 1);
  glReadPixels(0, 0, k_side, k_side, GL_RGBA, GL_UNSIGNED_BYTE, out.data());
  EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));

  for (int slot = 0; slot < 4; ++slot) {
    bool const on = c.support_mask >> slot & 1u;
    cpu_key const key = tracker_key(c.keys[slot]);
    // Up to 2.5 8-bit steps (the CPU's rounded offset and truncated slope
    // product, the framebuffer's rounding, and the fixed-point slope over up
    // to 100 steps of distance), plus what the CPU's rounding of the
    // reference chroma to whole steps moves the ramp by: the ramp's slope is
    // key.scale / 256 weights per chroma step. The float reference is worked
    // out here, not read from the uniform under test.
    glm::vec4 const ref = object_tracking::g_rgb_to_ycbcr *
                          glm::vec4(c.keys[slot].r, c.keys[slot].g, c.keys[slot].b, 1.0f);
    double const ref_error = std::fabs(std::clamp(ref[1], 0.0f, 1.0f) * 255.0 - key.cb) +
                             std::fabs(std::clamp(ref[2], 0.0f, 1.0f) * 255.0 - key.cr);
    ASSERT_LE(ref_error, 1.0) << "slot " << slot;
    double const bound = on ? 2.5 + key.scale / 256.0 * ref_error : 0.0;
    int failures = 0;
    for (int y = 0; y < k_side; ++y)
      for (int x = 0; x < k_side; ++x) {
        int const want = on ? cpu_weight(key, x, y) : 255;
        int const got = out[(y * k_side + x) * 4 + slot];
        if (std::abs(got - want) > bound && ++failures <= 5)
          ADD_FAILURE() << "slot " << slot << " at Cb " << x << ", Cr " << y << ": cpu " << want << ", gpu " << got
                        << " (bound " << bound << ")";
      }
    EXPECT_EQ(failures, 0) << "slot " << slot;
  }
}

INSTANTIATE_TEST_SUITE_P(keys, gl_render_test, testing::ValuesIn(g_render_cases),
                         [](testing::TestParamInfo<render_case> const &i) { return std::string(i.param.name); });

#else

TEST(gl_render_test, key_matches_cpu_weight) {
  GTEST_SKIP() << "OSMesa was not found when the tests were configured";
}

#endif  // SIGHT_HAVE_OSMESA

}  // namespace
