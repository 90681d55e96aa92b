# The GPU key tests: a GLSL reference compiler checks the text of every slot
# configuration, and Mesa's off-screen renderer draws the key. When either is
# missing at configure time the tests that need it skip and say why.
find_program(SIGHT_GLSLANG_VALIDATOR glslangValidator)
if(SIGHT_GLSLANG_VALIDATOR)
  target_compile_definitions(${target} PRIVATE
    SIGHT_GLSLANG_VALIDATOR="${SIGHT_GLSLANG_VALIDATOR}")
endif()

find_path(SIGHT_OSMESA_INCLUDE_DIR GL/osmesa.h)
find_library(SIGHT_OSMESA_LIBRARY OSMesa)
if(SIGHT_OSMESA_INCLUDE_DIR AND SIGHT_OSMESA_LIBRARY)
  target_include_directories(${target} PRIVATE ${SIGHT_OSMESA_INCLUDE_DIR})
  target_link_libraries(${target} PRIVATE ${SIGHT_OSMESA_LIBRARY})
  target_compile_definitions(${target} PRIVATE SIGHT_HAVE_OSMESA=1)
endif()
