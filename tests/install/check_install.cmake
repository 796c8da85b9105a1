# Installs the built tree into a staging prefix, then builds and runs a tiny
# client against that prefix alone: once through find_package, once through
# pkg-config.
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)
# A sanitized library needs clients built with the same sanitizer.
set(client_flags "")
if(SANITIZE)
  set(client_flags "-fsanitize=${SANITIZE}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BINARY_DIR} --prefix ${prefix}
  RESULT_VARIABLE rc OUTPUT_QUIET)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "install into the staging prefix failed")
endif()

execute_process(COMMAND ${CMAKE_COMMAND} -S ${CLIENT_DIR} -B ${WORK_DIR}/client -G Ninja
    -DCMAKE_PREFIX_PATH=${prefix} "-DCMAKE_CXX_FLAGS=${client_flags}"
  RESULT_VARIABLE rc OUTPUT_QUIET)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "configuring the client against the prefix failed")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK_DIR}/client RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "building the client against the prefix failed")
endif()
execute_process(COMMAND ${WORK_DIR}/client/installed_client RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "the find_package client failed with ${rc}")
endif()

file(GLOB pc_dirs ${prefix}/lib*/pkgconfig ${prefix}/lib/*/pkgconfig)
execute_process(COMMAND sh -c "PKG_CONFIG_PATH=${pc_dirs} pkg-config --cflags --libs treekeeper"
  OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "pkg-config does not know treekeeper")
endif()
execute_process(COMMAND sh -c "c++ -std=c++20 ${client_flags} ${CLIENT_DIR}/client.cpp ${flags} -o ${WORK_DIR}/pc_client && LD_LIBRARY_PATH=${prefix}/lib:${pc_dirs}/.. ${WORK_DIR}/pc_client"
  RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "the pkg-config client failed")
endif()
