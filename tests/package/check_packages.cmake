# Unpacks the library and -dev packages from DEB_DIR into a root of their
# own and builds clients against that root alone: the handle interface
# through find_package (CLIENT_DIR), the modern one through pkg-config
# (MODERN_CLIENT). Packages that aren't there skip the test.
file(GLOB library_deb ${DEB_DIR}/libtreekeeper1_*.deb)
file(GLOB dev_deb ${DEB_DIR}/libtreekeeper-dev_*.deb)
if(NOT library_deb OR NOT dev_deb)
  message(STATUS "packages not built: run tools/package")
  return()
endif()
file(REMOVE_RECURSE ${WORK_DIR})
set(root ${WORK_DIR}/root)
file(MAKE_DIRECTORY ${root})

function(run what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${what} failed: ${out}")
  endif()
endfunction()

foreach(deb ${library_deb} ${dev_deb})
  run("dpkg-deb -x ${deb}" dpkg-deb -x ${deb} ${root})
endforeach()
execute_process(COMMAND dpkg-deb -f ${library_deb} Depends OUTPUT_VARIABLE depends)
if(NOT depends MATCHES "libxml2" OR NOT depends MATCHES "libxslt")
  message(FATAL_ERROR "libtreekeeper1 lacks its library dependencies: ${depends}")
endif()
execute_process(COMMAND dpkg-deb -f ${dev_deb} Depends OUTPUT_VARIABLE depends)
if(NOT depends MATCHES "libtreekeeper1 \\(= ")
  message(FATAL_ERROR "libtreekeeper-dev does not depend on its library: ${depends}")
endif()
file(GLOB pc_dir ${root}/usr/lib/*/pkgconfig ${root}/usr/lib/pkgconfig)
get_filename_component(lib_dir ${pc_dir} DIRECTORY)
set(ENV{LD_LIBRARY_PATH} ${lib_dir})

run("configuring the find_package client" ${CMAKE_COMMAND} -S ${CLIENT_DIR} -B ${WORK_DIR}/client
  -G Ninja -DCMAKE_PREFIX_PATH=${root}/usr -DCMAKE_FIND_USE_CMAKE_SYSTEM_PATH=OFF)
run("building the find_package client" ${CMAKE_COMMAND} --build ${WORK_DIR}/client)
run("the find_package client" ${WORK_DIR}/client/installed_client)

set(ENV{PKG_CONFIG_LIBDIR} ${pc_dir})
execute_process(COMMAND pkg-config --cflags --libs treekeeper OUTPUT_VARIABLE flags
  OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE rc)
string(FIND "${flags}" "-I${root}/usr/lib/" at)
if(NOT rc EQUAL 0 OR NOT at EQUAL 0)
  message(FATAL_ERROR "pkg-config does not lead into the unpacked root: ${flags}")
endif()
separate_arguments(flags UNIX_COMMAND "${flags}")
run("building the pkg-config client" c++ -std=c++17 ${MODERN_CLIENT} ${flags}
  -o ${WORK_DIR}/pc_client)
run("the pkg-config client" ${WORK_DIR}/pc_client)
message(STATUS "clients built and run against ${root}")
