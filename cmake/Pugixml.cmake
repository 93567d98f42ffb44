# pugixml, linked statically so that the launcher stays self-contained: built from a source
# tree when BWK_PUGIXML_SOURCE_DIR names one (the macOS check does this); else Debian's static
# archive on Linux, and on macOS the package manager's CMake package, its static library when
# it has one.
set(BWK_PUGIXML_SOURCE_DIR "" CACHE PATH "A pugixml source tree to build the library from")
if(BWK_PUGIXML_SOURCE_DIR)
  add_library(bwk_pugixml STATIC ${BWK_PUGIXML_SOURCE_DIR}/src/pugixml.cpp)
  target_include_directories(bwk_pugixml SYSTEM PUBLIC ${BWK_PUGIXML_SOURCE_DIR}/src)
  # Its own code, not ours: its warnings are not findings of this project.
  target_compile_options(bwk_pugixml PRIVATE -w)
  return()
endif()
if(APPLE)
  find_package(pugixml CONFIG REQUIRED)
  add_library(bwk_pugixml INTERFACE)
  if(TARGET pugixml::static)
    target_link_libraries(bwk_pugixml INTERFACE pugixml::static)
  else()
    message(WARNING "pugixml has no static library here: the launcher will need libpugixml.dylib at run time. "
                    "Build pugixml with -DBUILD_SHARED_LIBS=OFF for a launcher that can be shipped.")
    target_link_libraries(bwk_pugixml INTERFACE pugixml::pugixml)
  endif()
  return()
endif()
find_path(PUGIXML_INCLUDE_DIR pugixml.hpp REQUIRED)
find_library(PUGIXML_STATIC libpugixml.a)
if(NOT PUGIXML_STATIC)
  message(FATAL_ERROR "libpugixml.a not found: run scripts/setup.sh")
endif()
add_library(bwk_pugixml INTERFACE)
target_include_directories(bwk_pugixml SYSTEM INTERFACE ${PUGIXML_INCLUDE_DIR})
target_link_libraries(bwk_pugixml INTERFACE ${PUGIXML_STATIC})
