# Debian packages, one a component, made by CPack's DEB generator:
#   libtreekeeper1     the shared library (the soname's number in the name)
#   libtreekeeper-dev  headers, CMake package, pkg-config file
#   treekeeper         the command-line tool and its manual page
# Library dependencies come from dpkg-shlibdeps; the packages depend on each
# other at the exact version.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME treekeeper)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Handle-based XML document library")
set(CPACK_PACKAGE_CONTACT "TreeKeeper developers <treekeeper@example.org>")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL library development)
if(TARGET treekeeper_cli)
  list(APPEND CPACK_COMPONENTS_ALL tool)
endif()

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The tool's own library is resolved in the build tree, not the system.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://example.org/treekeeper")

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libtreekeeper${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libtreekeeper-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_TOOL_PACKAGE_NAME treekeeper)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION text)

set(CPACK_COMPONENT_LIBRARY_DESCRIPTION "Handle-based XML document library
 TreeKeeper holds one XML document per instance and gives a program a small,
 handle-based interface to it: elements by integer handles and paths, values
 as text, numbers or bytes, exports that never leave a half-written file, and
 XSLT 1.0 within a budget. Built on libxml2 and libxslt.
 .
 This package holds the shared library.")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "Handle-based XML document library - development files
 TreeKeeper holds one XML document per instance and gives a program a small,
 handle-based interface to it.
 .
 This package holds the headers (the handle interface and the header-only
 modern C++ interface), the CMake package and the pkg-config file.")
set(CPACK_COMPONENT_TOOL_DESCRIPTION "Read and edit XML documents by element path
 treekeeper reads a value of an XML document by its element path, changes it,
 and writes the document back without ever leaving a half-written file; it
 also lists elements, removes them and runs XSLT 1.0 stylesheets.")

include(CPack)
cpack_add_component(library)
cpack_add_component(development DEPENDS library)
cpack_add_component(tool DEPENDS library)
