# OpenCV for the tests and benchmarks (never the library): the target
# sight_opencv. Debian's per-module -dev packages ship headers and libraries
# but no CMake package, so the modules are found one by one.
if(TARGET sight_opencv)
  return()
endif()
find_path(SIGHT_OPENCV_INCLUDE opencv2/core.hpp PATH_SUFFIXES opencv4 REQUIRED)
add_library(sight_opencv INTERFACE)
target_include_directories(sight_opencv SYSTEM INTERFACE ${SIGHT_OPENCV_INCLUDE})
target_compile_definitions(sight_opencv INTERFACE SIGHT_HAVE_OPENCV=1)
foreach(module calib3d video imgcodecs features2d imgproc core)
  find_library(SIGHT_OPENCV_${module} opencv_${module} REQUIRED)
  target_link_libraries(sight_opencv INTERFACE ${SIGHT_OPENCV_${module}})
endforeach()
