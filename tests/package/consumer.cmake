# Installs the built library into a temporary prefix, then builds and runs a
# small program against it twice: through find_package and through pkg-config.
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)

function(run)
  execute_process(COMMAND ${ARGV} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed (${rc}): ${ARGV}\n${out}\n${err}")
  endif()
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
run(${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/build
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_BUILD_TYPE=Release)
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
run(${WORK_DIR}/build/consumer)

file(GLOB_RECURSE pc ${prefix}/*/korvane-sight.pc)
get_filename_component(pc_dir "${pc}" DIRECTORY)
get_filename_component(lib_dir "${pc_dir}" DIRECTORY)
set(ENV{PKG_CONFIG_PATH} ${pc_dir})
execute_process(COMMAND pkg-config --define-prefix --cflags --libs korvane-sight
  RESULT_VARIABLE rc OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "pkg-config does not know korvane-sight")
endif()
separate_arguments(flags UNIX_COMMAND "${flags}")
run(c++ -std=c++20 ${CONSUMER_DIR}/main.cpp ${flags} -Wl,-rpath,${lib_dir}
    -o ${WORK_DIR}/consumer_pc)
run(${WORK_DIR}/consumer_pc)
