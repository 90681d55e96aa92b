# The GPU key tests: a GLSL reference compiler checks the text of every slot
# configuration, and Mesa's off-screen renderer draws the key. Both are
# required, so that these tests never skip quietly.
find_program(SIGHT_GLSLANG_VALIDATOR glslangValidator REQUIRED)
if(SIGHT_GLSLANG_VALIDATOR)
  target_compile_definitions(${target} PRIVATE
    SIGHT_GLSLANG_VALIDATOR="${SIGHT_GLSLANG_VALIDATOR}")
endif()

find_path(SIGHT_OSMESA_INCLUDE_DIR GL/osmesa.h REQUIRED)
find_library(SIGHT_OSMESA_LIBRARY OSMesa REQUIRED)
if(SIGHT_OSMESA_INCLUDE_DIR AND SIGHT_OSMESA_LIBRARY)
  target_include_directories(${target} PRIVATE ${SIGHT_OSMESA_INCLUDE_DIR})
  target_link_libraries(${target} PRIVATE ${SIGHT_OSMESA_LIBRARY})
  target_compile_definitions(${target} PRIVATE SIGHT_HAVE_OSMESA=1)
endif()
