# OpenCV for the picture-quality test and the benchmark's comparison, found
# by hand when its CMake package is missing: Debian's per-module -dev
# packages ship headers and libraries but no OpenCVConfig.cmake.
if(NOT OpenCV_FOUND)
  find_path(SIGHT_SR_OPENCV_INCLUDE opencv2/core.hpp PATH_SUFFIXES opencv4)
  find_library(SIGHT_SR_OPENCV_CORE opencv_core)
  find_library(SIGHT_SR_OPENCV_IMGPROC opencv_imgproc)
  find_library(SIGHT_SR_OPENCV_IMGCODECS opencv_imgcodecs)
  if(SIGHT_SR_OPENCV_INCLUDE AND SIGHT_SR_OPENCV_CORE AND SIGHT_SR_OPENCV_IMGPROC AND SIGHT_SR_OPENCV_IMGCODECS)
    set(SIGHT_SR_OPENCV_LIBS ${SIGHT_SR_OPENCV_IMGCODECS} ${SIGHT_SR_OPENCV_IMGPROC} ${SIGHT_SR_OPENCV_CORE})
    target_include_directories(${target} SYSTEM PRIVATE ${SIGHT_SR_OPENCV_INCLUDE})
    target_link_libraries(${target} PRIVATE ${SIGHT_SR_OPENCV_LIBS})
    target_compile_definitions(${target} PRIVATE SIGHT_HAVE_OPENCV=1)
    # The benchmark program is made later, in bench/: link it once the top
    # directory is done.
    function(sight_sr_bench_opencv include libs)
      if(TARGET sight_super_resolution_bench)
        target_include_directories(sight_super_resolution_bench SYSTEM PRIVATE ${include})
        target_link_libraries(sight_super_resolution_bench PRIVATE ${libs})
        target_compile_definitions(sight_super_resolution_bench PRIVATE SIGHT_HAVE_OPENCV=1)
      endif()
    endfunction()
    cmake_language(DEFER DIRECTORY ${PROJECT_SOURCE_DIR} CALL sight_sr_bench_opencv
      "${SIGHT_SR_OPENCV_INCLUDE}" "${SIGHT_SR_OPENCV_LIBS}")
  endif()
endif()
