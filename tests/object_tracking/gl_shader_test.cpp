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
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ostream>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <glm/mat4x4.hpp>
#include <glm/vec4.hpp>

#ifdef SIGHT_HAVE_OSMESA
#define GL_GLEXT_PROTOTYPES 1  // declarations only: entry points come from OSMesaGetProcAddress
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
  float r, g, b;
  float tolerance_c;
  float smoothness;
};

object_tracking_data make_data(key_settings const &k) {
  object_tracking_data d;
  d.color().r() = k.r;
  d.color().g() = k.g;
  d.color().b() = k.b;
  d.tolerance_c() = k.tolerance_c;
  d.smoothness() = k.smoothness;
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
// The text itself.

std::vector<std::string> split_lines(std::string const &s) {
  std::vector<std::string> lines;
  std::size_t begin = 0;
  for (std::size_t end; (end = s.find('\n', begin)) != std::string::npos; begin = end + 1)
    lines.push_back(s.substr(begin, end - begin));
  if (begin != s.size()) lines.push_back(s.substr(begin));  // a last line without its end
  return lines;
}

std::vector<std::string> expected_block(int n) {
  std::string const u = uniform_name(n);
  std::string const d = std::to_string(n);
  return {"float tracking_alpha_" + d + "( vec3 col )",
          "{\t",
          "#if\ttracking_support_" + d,
          "\tvec2\tdcol  = abs( col.gb - " + u + ".rg );",
          "\tfloat\talpha = " + u + ".a - ( dcol.r + dcol.g )*" + u + ".b;",
          "\treturn \tclamp( alpha, 0.0, 1.0 );",
          "#else\t// tracking_support_" + d,
          "\treturn 1.0;",
          "#endif\t// tracking_support_" + d,
          "}"};
}

TEST(gl_text_test, vertex_program_is_an_empty_string) {
  char const *v = object_tracking_data::p_GL_vertex_program();
  ASSERT_NE(v, nullptr);
  EXPECT_EQ(std::strlen(v), 0u);
}

// Line by line: declarations of the four slots in order, one empty line,
// then the four blocks with an empty line between them and a line end after
// the last brace. Every line of slot N names slot N only.
TEST(gl_text_test, fragment_program_layout) {
  std::string const text = object_tracking_data::p_GL_fragment_program();
  EXPECT_EQ(text.size(), 1500u);
  ASSERT_FALSE(text.empty());
  EXPECT_EQ(text.back(), '\n');

  std::vector<std::string> want;
  for (int n = 0; n < 4; ++n) want.push_back("uniform\tvec4\t" + uniform_name(n) + ";");
  for (int n = 0; n < 4; ++n) {
    want.push_back("");
    for (auto &l : expected_block(n)) want.push_back(l);
  }
  std::vector<std::string> const got = split_lines(text);
  ASSERT_EQ(got.size(), want.size());
  for (std::size_t i = 0; i < want.size(); ++i) EXPECT_EQ(got[i], want[i]) << "line " << i + 1;
}

// ---------------------------------------------------------------------------
// The text through a GLSL reference compiler, wrapped as a host would wrap it,
// for each shading language profile and each of the 16 settings of the four
// tracking_support_N macros. The linked program's active uniforms must be
// exactly those of the slots switched on: a slot at 0 compiles to 1.0 and
// leaves its uniform unused.

struct glsl_profile {
  char const *name;
  char const *head;  // from #version up to where the host pastes the macros
  char const *main;  // after the text
};

// Every profile reads col from an input so that nothing folds away.
glsl_profile const g_profiles[] = {
    {"glsl110", "#version 110\n", "varying vec3 v_col;\n"
                                  "void main() { gl_FragColor = vec4(tracking_alpha_0(v_col), "
                                  "tracking_alpha_1(v_col), tracking_alpha_2(v_col), tracking_alpha_3(v_col)); }\n"},
    {"glsl130", "#version 130\n", "in vec3 v_col;\n"
                                  "void main() { gl_FragColor = vec4(tracking_alpha_0(v_col), "
                                  "tracking_alpha_1(v_col), tracking_alpha_2(v_col), tracking_alpha_3(v_col)); }\n"},
    {"glsl330core", "#version 330 core\n",
     "in vec3 v_col;\nout vec4 o_key;\n"
     "void main() { o_key = vec4(tracking_alpha_0(v_col), tracking_alpha_1(v_col), "
     "tracking_alpha_2(v_col), tracking_alpha_3(v_col)); }\n"},
    {"glsl450core", "#version 450 core\n",
     "layout(location = 0) in vec3 v_col;\nlayout(location = 0) out vec4 o_key;\n"
     "void main() { o_key = vec4(tracking_alpha_0(v_col), tracking_alpha_1(v_col), "
     "tracking_alpha_2(v_col), tracking_alpha_3(v_col)); }\n"},
    // ES has no default float precision in a fragment shader: the host sets one.
    {"glsl100es", "#version 100\nprecision mediump float;\n",
     "varying vec3 v_col;\n"
     "void main() { gl_FragColor = vec4(tracking_alpha_0(v_col), tracking_alpha_1(v_col), "
     "tracking_alpha_2(v_col), tracking_alpha_3(v_col)); }\n"},
    {"glsl300es", "#version 300 es\nprecision highp float;\n",
     "in vec3 v_col;\nout vec4 o_key;\n"
     "void main() { o_key = vec4(tracking_alpha_0(v_col), tracking_alpha_1(v_col), "
     "tracking_alpha_2(v_col), tracking_alpha_3(v_col)); }\n"},
};

std::string wrap_fragment(glsl_profile const &p, unsigned support_mask, std::string const &text) {
  std::string s = p.head;
  for (int n = 0; n < 4; ++n)
    s += "#define tracking_support_" + std::to_string(n) + ((support_mask >> n & 1u) ? " 1\n" : " 0\n");
  return s + text + p.main;
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
#endif

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

void PrintTo(glsl_profile const &p, std::ostream *os) { *os << p.name; }

class gl_compile_test : public testing::TestWithParam<glsl_profile> {
 protected:
  void SetUp() override {
#ifndef SIGHT_GLSLANG_VALIDATOR
    GTEST_SKIP() << "glslangValidator was not found when the tests were configured";
#endif
  }
};

TEST_P(gl_compile_test, every_support_setting_compiles_and_uses_its_uniforms) {
#ifdef SIGHT_GLSLANG_VALIDATOR
  std::string const text = object_tracking_data::p_GL_fragment_program();
  for (unsigned mask = 0; mask < 16; ++mask) {
    validator_run const run = run_validator(wrap_fragment(GetParam(), mask, text));
    ASSERT_EQ(run.status, 0) << "support mask " << mask << ":\n" << run.output;
    std::set<std::string> want;
    for (int n = 0; n < 4; ++n)
      if (mask >> n & 1u) want.insert(uniform_name(n));
    EXPECT_EQ(reflected_uniforms(run.output), want) << "support mask " << mask << ":\n" << run.output;
  }
#endif
}

// The harness must be able to fail: a slip in slot 2's code is an error
// exactly when slot 2 is compiled in.
TEST_P(gl_compile_test, a_broken_slot_fails_only_when_switched_on) {
#ifdef SIGHT_GLSLANG_VALIDATOR
  std::string text = object_tracking_data::p_GL_fragment_program();
  std::string const good = "tracking_ref_2_cb_cr_mul_add.rg";
  auto const at = text.find(good);
  ASSERT_NE(at, std::string::npos);
  text.replace(at, good.size(), "tracking_ref_2_cb_cr_mul_add.rq");
  EXPECT_NE(run_validator(wrap_fragment(GetParam(), 0xF, text)).status, 0);
  validator_run const off = run_validator(wrap_fragment(GetParam(), 0xB, text));
  EXPECT_EQ(off.status, 0) << off.output;
#endif
}

INSTANTIATE_TEST_SUITE_P(profiles, gl_compile_test, testing::ValuesIn(g_profiles),
                         [](testing::TestParamInfo<glsl_profile> const &i) { return std::string(i.param.name); });

// ---------------------------------------------------------------------------
// Uniform values. Worked numbers and edge cases, each row once.

struct values_case {
  char const *name;
  key_settings k;
  float cb, cr, mul, add;  // NAN: not checked in this row
  float eps_chroma, eps_key;
};

values_case const g_value_cases[] = {
    // Default settings: tol 0.35, soft 0.09, given to the digits shown.
    {"defaults", {200 / 255.0f, 137 / 255.0f, 119 / 255.0f, 0.7f, 0.3f}, 0.434f, 0.615f, 11.1f, 3.89f, 6e-4f, 0.02f},
    // No tolerance: add is exactly 0, so the key is 0 everywhere.
    {"tolerance_0", {200 / 255.0f, 137 / 255.0f, 119 / 255.0f, 0.0f, 0.3f}, NAN, NAN, 1 / 0.09f, 0.0f, 0.0f, 1e-3f},
    // No smoothness: soft is held at 0.01, so mul is about 100.
    {"smoothness_0", {200 / 255.0f, 137 / 255.0f, 119 / 255.0f, 0.7f, 0.0f}, NAN, NAN, 100.0f, 35.0f, 0.0f, 0.01f},
    // Black and white sit at chroma 0.502.
    {"black", {0.0f, 0.0f, 0.0f, 0.7f, 0.3f}, 0.502f, 0.502f, NAN, NAN, 1e-6f, 0.0f},
    {"white", {1.0f, 1.0f, 1.0f, 0.7f, 0.3f}, 0.502f, 0.502f, NAN, NAN, 1e-5f, 0.0f},
    // Colours outside the RGB cube: chroma clamped into 0..1.
    {"red_2", {2.0f, 0.0f, 0.0f, 0.7f, 0.3f}, 0.206f, 1.0f, NAN, NAN, 1e-5f, 0.0f},
    {"green_2", {0.0f, 2.0f, 0.0f, 0.7f, 0.3f}, 0.0f, 0.0f, NAN, NAN, 0.0f, 0.0f},
    {"blue_2", {0.0f, 0.0f, 2.0f, 0.7f, 0.3f}, 1.0f, 0.360f, NAN, NAN, 1e-5f, 0.0f},
};

void PrintTo(values_case const &c, std::ostream *os) { *os << c.name; }

class gl_values_test : public testing::TestWithParam<values_case> {};

TEST_P(gl_values_test, worked_numbers) {
  values_case const &c = GetParam();
  glm::vec4 const v = uniform_of(c.k, 1);
  if (!std::isnan(c.cb)) {
    EXPECT_NEAR(v[0], c.cb, c.eps_chroma) << "Cb";
  }
  if (!std::isnan(c.cr)) {
    EXPECT_NEAR(v[1], c.cr, c.eps_chroma) << "Cr";
  }
  if (!std::isnan(c.mul)) {
    EXPECT_NEAR(v[2], c.mul, c.eps_key) << "mul";
  }
  if (!std::isnan(c.add)) {
    EXPECT_NEAR(v[3], c.add, c.eps_key) << "add";
  }
  // Chroma is always on the shader's scale, and the key's edge never has
  // zero width.
  EXPECT_TRUE(v[0] >= 0.0f && v[0] <= 1.0f && v[1] >= 0.0f && v[1] <= 1.0f) << v[0] << ", " << v[1];
  EXPECT_TRUE(std::isfinite(v[2]) && v[2] > 0.0f) << v[2];
}

INSTANTIATE_TEST_SUITE_P(cases, gl_values_test, testing::ValuesIn(g_value_cases),
                         [](testing::TestParamInfo<values_case> const &i) { return std::string(i.param.name); });

// A negative tolerance acts as 0, to the bit.
TEST(gl_values_rules_test, negative_tolerance_is_zero_tolerance) {
  for (float t : {-0.01f, -0.5f, -3.0f}) {
    glm::vec4 const neg = uniform_of({0.3f, 0.6f, 0.2f, t, 0.3f}, 0);
    glm::vec4 const zero = uniform_of({0.3f, 0.6f, 0.2f, 0.0f, 0.3f}, 0);
    for (int i = 0; i < 4; ++i)
      EXPECT_EQ(std::bit_cast<std::uint32_t>(neg[i]), std::bit_cast<std::uint32_t>(zero[i])) << "t " << t << " [" << i << "]";
  }
}

// Any smoothness below 1/30 gives the same edge as 0.
TEST(gl_values_rules_test, smoothness_floor) {
  glm::vec4 const floor = uniform_of({0.3f, 0.6f, 0.2f, 0.7f, 0.0f}, 0);
  for (float s : {-1.0f, 0.01f, 0.033f}) {
    glm::vec4 const v = uniform_of({0.3f, 0.6f, 0.2f, 0.7f, s}, 0);
    EXPECT_EQ(std::bit_cast<std::uint32_t>(v[2]), std::bit_cast<std::uint32_t>(floor[2])) << "s " << s;
    EXPECT_EQ(std::bit_cast<std::uint32_t>(v[3]), std::bit_cast<std::uint32_t>(floor[3])) << "s " << s;
  }
  glm::vec4 const wider = uniform_of({0.3f, 0.6f, 0.2f, 0.7f, 0.034f}, 0);
  EXPECT_LT(wider[2], floor[2]);
}

// Four trackers in one table: each slot writes its own name and nothing
// else, in any order, and writing a slot again replaces its value in place.
TEST(gl_values_rules_test, slots_write_their_own_uniform) {
  key_settings const keys[4] = {{0.1f, 0.8f, 0.2f, 0.4f, 0.5f},
                                {0.9f, 0.1f, 0.6f, 0.25f, 0.05f},
                                {0.2f, 0.3f, 0.9f, 1.2f, 1.0f},
                                {200 / 255.0f, 137 / 255.0f, 119 / 255.0f, 0.7f, 0.3f}};
  variables vars;
  for (int slot : {3, 1, 0, 2}) make_data(keys[slot]).GL_set_shader_values(slot, vars);
  ASSERT_EQ(vars.size(), 4u);
  for (int slot = 0; slot < 4; ++slot) {
    auto const *v = vars.find(uniform_name(slot).c_str());
    ASSERT_NE(v, nullptr) << "slot " << slot;
    glm::vec4 const alone = uniform_of(keys[slot], slot);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(v->value()[i], alone[i]) << "slot " << slot << " [" << i << "]";
  }
  // The settings are read at the time of the call only.
  object_tracking_data d = make_data(keys[0]);
  d.GL_set_shader_values(0, vars);
  d.tolerance_c() = 0.0f;
  EXPECT_EQ(vars.find(uniform_name(0).c_str())->value()[3], uniform_of(keys[0], 0)[3]);
  d.GL_set_shader_values(0, vars);
  EXPECT_EQ(vars.size(), 4u);
  EXPECT_EQ(vars.find(uniform_name(0).c_str())->value()[3], 0.0f);
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

#define SIGHT_TEST_GL_FUNCTIONS(X)                                                                  \
  X(glGetError) X(glGetString) X(glViewport) X(glClearColor) X(glClear) X(glFinish) X(glReadPixels)  \
  X(glPixelStorei) X(glGenTextures) X(glDeleteTextures) X(glBindTexture) X(glTexParameteri)          \
  X(glTexImage2D) X(glDrawArrays) X(glCreateShader) X(glDeleteShader) X(glShaderSource)              \
  X(glCompileShader) X(glGetShaderiv) X(glGetShaderInfoLog) X(glCreateProgram) X(glDeleteProgram)    \
  X(glAttachShader) X(glLinkProgram) X(glGetProgramiv) X(glGetProgramInfoLog) X(glUseProgram)        \
  X(glGetUniformLocation) X(glUniform4fv) X(glUniform1i)

// Entry points from OSMesa itself, so that no other GL library in the
// process can stand in for them.
struct gl_api {
#define SIGHT_TEST_DECLARE(f) decltype(&::f) f = nullptr;
  SIGHT_TEST_GL_FUNCTIONS(SIGHT_TEST_DECLARE)
#undef SIGHT_TEST_DECLARE

  std::string load() {
#define SIGHT_TEST_LOAD(f)                                          \
  f = reinterpret_cast<decltype(f)>(OSMesaGetProcAddress(#f));       \
  if (f == nullptr) return #f;
    SIGHT_TEST_GL_FUNCTIONS(SIGHT_TEST_LOAD)
#undef SIGHT_TEST_LOAD
    return {};
  }
};

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

// A compatibility context on memory of our own, 256 by 256 RGBA.
class osmesa_target {
 public:
  osmesa_target() : pixels_(k_side * k_side * 4) {
    int const attribs[] = {OSMESA_FORMAT, OSMESA_RGBA, OSMESA_DEPTH_BITS, 0, OSMESA_STENCIL_BITS, 0,
                           OSMESA_ACCUM_BITS, 0, OSMESA_PROFILE, OSMESA_COMPAT_PROFILE,
                           OSMESA_CONTEXT_MAJOR_VERSION, 3, OSMESA_CONTEXT_MINOR_VERSION, 0, 0};
    ctx_ = OSMesaCreateContextAttribs(attribs, nullptr);
    if (ctx_ == nullptr) {
      error_ = "OSMesaCreateContextAttribs failed (compatibility profile, GL 3.0)";
      return;
    }
    if (!OSMesaMakeCurrent(ctx_, pixels_.data(), GL_UNSIGNED_BYTE, k_side, k_side)) {
      error_ = "OSMesaMakeCurrent failed";
      return;
    }
    std::string const missing = gl.load();
    if (!missing.empty()) error_ = "no entry point " + missing;
  }
  ~osmesa_target() {
    if (ctx_ == nullptr) return;
    OSMesaMakeCurrent(nullptr, nullptr, 0, 0, 0);  // release our buffer first
    OSMesaDestroyContext(ctx_);
  }
  osmesa_target(osmesa_target const &) = delete;
  osmesa_target &operator=(osmesa_target const &) = delete;

  std::string const &error() const { return error_; }

  gl_api gl;

 private:
  OSMesaContext ctx_ = nullptr;
  std::vector<std::uint8_t> pixels_;
  std::string error_;
};

GLuint compile(gl_api const &gl, GLenum stage, std::string const &source, std::string &log) {
  GLuint const s = gl.glCreateShader(stage);
  char const *p = source.c_str();
  gl.glShaderSource(s, 1, &p, nullptr);
  gl.glCompileShader(s);
  GLint ok = 0;
  gl.glGetShaderiv(s, GL_COMPILE_STATUS, &ok);
  if (!ok) {
    char buf[2048] = {};
    gl.glGetShaderInfoLog(s, sizeof buf, nullptr, buf);
    log += buf;
    gl.glDeleteShader(s);
    return 0;
  }
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
key_settings const g_varied[4] = {{200 / 255.0f, 137 / 255.0f, 119 / 255.0f, 0.7f, 0.3f},
                                  {0.1f, 0.8f, 0.2f, 0.4f, 0.5f},
                                  {0.2f, 0.3f, 0.9f, 1.2f, 1.0f},
                                  {10 / 255.0f, 30 / 255.0f, 5 / 255.0f, 0.3f, 0.0f}};
key_settings const g_edges[4] = {{0.5f, 0.5f, 0.5f, 0.0f, 0.3f},
                                 {25 / 255.0f, 60 / 255.0f, 55 / 255.0f, 0.25f, 0.05f},
                                 {0.5f, 0.5f, 0.5f, -0.5f, 0.3f},
                                 {2.0f, 0.0f, 0.0f, 0.9f, 0.4f}};

render_case const g_render_cases[] = {
    {"varied_all_on", {g_varied[0], g_varied[1], g_varied[2], g_varied[3]}, 0xF},
    {"varied_1_and_3_on", {g_varied[0], g_varied[1], g_varied[2], g_varied[3]}, 0xA},
    {"edges_all_on", {g_edges[0], g_edges[1], g_edges[2], g_edges[3]}, 0xF},
    {"edges_0_and_2_on", {g_edges[0], g_edges[1], g_edges[2], g_edges[3]}, 0x5},
};

void PrintTo(render_case const &c, std::ostream *os) { *os << c.name; }

class gl_render_test : public testing::TestWithParam<render_case> {};

TEST_P(gl_render_test, key_matches_cpu_weight) {
  render_case const &c = GetParam();
  osmesa_target target;
  if (!target.error().empty()) GTEST_SKIP() << "no software GL context: " << target.error();
  gl_api const &gl = target.gl;

  // Host side: build the program with the library's text inside.
  std::string fragment = "#version 130\n";
  for (int n = 0; n < 4; ++n)
    fragment += "#define tracking_support_" + std::to_string(n) + ((c.support_mask >> n & 1u) ? " 1\n" : " 0\n");
  fragment += std::string(object_tracking_data::p_GL_fragment_program()) + g_fragment_main;
  std::string log;
  GLuint const vs = compile(gl, GL_VERTEX_SHADER, g_vertex_source, log);
  GLuint const fs = compile(gl, GL_FRAGMENT_SHADER, fragment, log);
  ASSERT_TRUE(vs != 0 && fs != 0) << log;
  GLuint const prog = gl.glCreateProgram();
  gl.glAttachShader(prog, vs);
  gl.glAttachShader(prog, fs);
  gl.glLinkProgram(prog);
  GLint linked = 0;
  gl.glGetProgramiv(prog, GL_LINK_STATUS, &linked);
  if (!linked) {
    char buf[2048] = {};
    gl.glGetProgramInfoLog(prog, sizeof buf, nullptr, buf);
    FAIL() << buf;
  }
  gl.glUseProgram(prog);

  // Uniforms: every tracker writes its slot, the host walks the table.
  variables vars;
  for (int slot = 0; slot < 4; ++slot) make_data(c.keys[slot]).GL_set_shader_values(slot, vars);
  ASSERT_EQ(vars.size(), 4u);
  for (auto const &v : vars) {
    GLint const loc = gl.glGetUniformLocation(prog, v.name());
    gl.glUniform4fv(loc, 1, &v.value()[0]);
  }
  // An active slot's uniform exists under the table's name; an inactive one
  // is compiled out and reports -1, which glUniform4fv ignores.
  for (int slot = 0; slot < 4; ++slot)
    if (c.support_mask >> slot & 1u) {
      EXPECT_NE(gl.glGetUniformLocation(prog, uniform_name(slot).c_str()), -1) << "slot " << slot;
    }

  // The frame: texel (x, y) is (Y, Cb = x, Cr = y, A), luma and alpha random.
  std::mt19937 rng(0x5eed + c.support_mask);
  std::vector<std::uint8_t> frame(k_side * k_side * 4);
  for (int y = 0; y < k_side; ++y)
    for (int x = 0; x < k_side; ++x) {
      std::uint8_t *p = &frame[(y * k_side + x) * 4];
      p[0] = static_cast<std::uint8_t>(rng());
      p[1] = static_cast<std::uint8_t>(x);
      p[2] = static_cast<std::uint8_t>(y);
      p[3] = static_cast<std::uint8_t>(rng());
    }
  GLuint tex = 0;
  gl.glGenTextures(1, &tex);
  gl.glBindTexture(GL_TEXTURE_2D, tex);
  gl.glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
  gl.glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
  gl.glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
  gl.glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, k_side, k_side, 0, GL_RGBA, GL_UNSIGNED_BYTE, frame.data());
  gl.glUniform1i(gl.glGetUniformLocation(prog, "frame"), 0);

  gl.glViewport(0, 0, k_side, k_side);
  gl.glClearColor(0.5f, 0.5f, 0.5f, 0.5f);
  gl.glClear(GL_COLOR_BUFFER_BIT);
  gl.glDrawArrays(GL_TRIANGLES, 0, 3);
  std::vector<std::uint8_t> out(k_side * k_side * 4);
  gl.glPixelStorei(GL_PACK_ALIGNMENT, 1);
  gl.glReadPixels(0, 0, k_side, k_side, GL_RGBA, GL_UNSIGNED_BYTE, out.data());
  gl.glFinish();
  EXPECT_EQ(gl.glGetError(), static_cast<GLenum>(GL_NO_ERROR));
  gl.glDeleteTextures(1, &tex);
  gl.glDeleteProgram(prog);
  gl.glDeleteShader(vs);
  gl.glDeleteShader(fs);

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
    int failures = 0, worst = 0;
    for (int y = 0; y < k_side; ++y)
      for (int x = 0; x < k_side; ++x) {
        int const want = on ? cpu_weight(key, x, y) : 255;
        int const got = out[(y * k_side + x) * 4 + slot];
        worst = std::max(worst, std::abs(got - want));
        if (std::abs(got - want) > bound && ++failures <= 5)
          ADD_FAILURE() << "slot " << slot << " at Cb " << x << ", Cr " << y << ": cpu " << want << ", gpu " << got
                        << " (bound " << bound << ")";
      }
    EXPECT_EQ(failures, 0) << "slot " << slot;
    RecordProperty("slot_" + std::to_string(slot) + "_largest_difference", worst);
    RecordProperty("slot_" + std::to_string(slot) + "_bound", std::to_string(bound));
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
