# The GPU key tests: Mesa's off-screen renderer compiles and draws the key.
# It is required, so that these tests never skip quietly.
find_path(SIGHT_OSMESA_INCLUDE_DIR GL/osmesa.h REQUIRED)
find_library(SIGHT_OSMESA_LIBRARY OSMesa REQUIRED)
if(SIGHT_OSMESA_INCLUDE_DIR AND SIGHT_OSMESA_LIBRARY)
  target_include_directories(${target} PRIVATE ${SIGHT_OSMESA_INCLUDE_DIR})
  target_link_libraries(${target} PRIVATE ${SIGHT_OSMESA_LIBRARY})
  target_compile_definitions(${target} PRIVATE SIGHT_HAVE_OSMESA=1)
endif()
