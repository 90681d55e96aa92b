# End-to-end runs of the host program `sight` on clips that the ffmpeg program
# makes at test time. The test reads the host's Y4M output with the host's
# own reader and compares it with direct calls of the library.
find_program(SIGHT_FFMPEG ffmpeg REQUIRED)
find_package(nlohmann_json 3 CONFIG REQUIRED)
target_link_libraries(${target} PRIVATE nlohmann_json::nlohmann_json)
if(SIGHT_TOOLS)
  add_dependencies(${target} sight)
  target_link_libraries(${target} PRIVATE sight_host_parsing)
  target_compile_definitions(${target} PRIVATE SIGHT_HOST="$<TARGET_FILE:sight>" SIGHT_FFMPEG="${SIGHT_FFMPEG}")
endif()
# The runs start programs; a stuck one fails the test instead of holding CI.
cmake_language(DEFER CALL set_tests_properties host PROPERTIES TIMEOUT 300)
