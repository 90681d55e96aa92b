// GPU side of the tracker's colour key: GLSL text for a host's fragment
// shader, and the values of its uniforms.
//
// The library compiles nothing and owns no GPU object. A host defines the
// macros tracking_support_0 to tracking_support_3, pastes the text into its
// fragment shader, calls tracking_alpha_N(col) with col.gb holding the
// pixel's Cb and Cr on the scale 0 to 1, and fills uniform N from one
// tracker's settings with GL_set_shader_values(N, variables).
#include <sight/object_tracking/object_tracking.h>
#include <sight/object_tracking/object_tracking_data.h>

#include <glm/mat4x4.hpp>
#include <glm/vec4.hpp>

namespace Korvane::Sight {

namespace {

// One slot's uniform and keying function. The text is fixed to the
// character, tabs included, so every slot is stamped from this one macro and
// differs from the others only in its digit. With the host's macro at 0 the
// function compiles to a constant 1.0 and the uniform is left unused, so the
// GL compiler may drop it.
#define SIGHT_GL_UNIFORM(N) "tracking_ref_" #N "_cb_cr_mul_add"
#define SIGHT_GL_DECLARATION(N) "uniform\tvec4\t" SIGHT_GL_UNIFORM(N) ";\n"
#define SIGHT_GL_FUNCTION(N)                                          \
  "float tracking_alpha_" #N "( vec3 col )\n"                         \
  "{\t\n"                                                             \
  "#if\ttracking_support_" #N "\n"                                    \
  "\tvec2\tdcol  = abs( col.gb - " SIGHT_GL_UNIFORM(N) ".rg );\n"     \
  "\tfloat\talpha = " SIGHT_GL_UNIFORM(N) ".a - ( dcol.r + dcol.g )*" \
  SIGHT_GL_UNIFORM(N) ".b;\n"                                         \
  "\treturn \tclamp( alpha, 0.0, 1.0 );\n"                            \
  "#else\t// tracking_support_" #N "\n"                               \
  "\treturn 1.0;\n"                                                   \
  "#endif\t// tracking_support_" #N "\n"                              \
  "}\n"

// Declarations first, then the four functions, an empty line between
// blocks and none after the last.
constexpr char g_fragment_text[] =
    SIGHT_GL_DECLARATION(0) SIGHT_GL_DECLARATION(1)
    SIGHT_GL_DECLARATION(2) SIGHT_GL_DECLARATION(3) "\n"
    SIGHT_GL_FUNCTION(0) "\n"
    SIGHT_GL_FUNCTION(1) "\n"
    SIGHT_GL_FUNCTION(2) "\n"
    SIGHT_GL_FUNCTION(3);

}  // namespace

char const *const object_tracking_data::g_GL_uniform_names[4] = {
    SIGHT_GL_UNIFORM(0), SIGHT_GL_UNIFORM(1), SIGHT_GL_UNIFORM(2), SIGHT_GL_UNIFORM(3)};

#undef SIGHT_GL_FUNCTION
#undef SIGHT_GL_DECLARATION
#undef SIGHT_GL_UNIFORM

// The key has no vertex stage; the host keeps its own. An empty string
// rather than null, so that a host may paste it unconditionally.
char const *object_tracking_data::p_GL_vertex_program() { return ""; }

char const *object_tracking_data::p_GL_fragment_program() { return g_fragment_text; }

// Uniform of `slot` = (Cb, Cr, mul, add), so that the shader's key is
// clamp(add - (|dCb| + |dCr|) * mul, 0, 1): 1 up to distance tol - soft,
// 0 from tol on. It is the CPU key curve on the scale 0 to 1 instead of 0 to
// 255, except that the reference chroma stays a float here, neither rounded
// nor made integer. Single precision throughout, in the order written; the
// edge width is tol - inner as computed, which differs from soft by rounding.
// The text has four slots; a `slot` outside 0..3 names no uniform and
// writes nothing, rather than reading past the table of names.
void object_tracking_data::GL_set_shader_values(
    int slot, Tamarind::Shaders::program::variables &variables) const {
  if (slot < 0 || slot > 3) return;
  glm::vec4 const ycbcr =
      object_tracking::g_rgb_to_ycbcr * glm::vec4(color_.r(), color_.g(), color_.b(), 1.0f);

  // Only chroma is keyed; a colour outside the RGB cube can push it out of
  // range, and the shader's distances assume 0..1.
  float cb = ycbcr[1];
  float cr = ycbcr[2];
  if (cb < 0.0f) cb = 0.0f;
  if (cb > 1.0f) cb = 1.0f;
  if (cr < 0.0f) cr = 0.0f;
  if (cr > 1.0f) cr = 1.0f;

  // The lower bound keeps the edge from collapsing, so mul stays finite.
  float soft = smoothness_ * 0.3f;
  if (soft < 0.01f) soft = 0.01f;
  float tol = tolerance_c_ * 0.5f;
  if (tol < 0.0f) tol = 0.0f;
  float const inner = tol - soft;
  float const mul = 1.0f / (tol - inner);
  float const add = mul * tol;

  variables[g_GL_uniform_names[slot]] = glm::vec4(cb, cr, mul, add);
}

}  // namespace Korvane::Sight
