# pugixml is linked from its static archive so that the launcher stays self-contained.
find_path(PUGIXML_INCLUDE_DIR pugixml.hpp REQUIRED)
find_library(PUGIXML_STATIC libpugixml.a)
if(NOT PUGIXML_STATIC)
  message(FATAL_ERROR "libpugixml.a not found: run scripts/setup.sh")
endif()
add_library(bwk_pugixml INTERFACE)
target_include_directories(bwk_pugixml SYSTEM INTERFACE ${PUGIXML_INCLUDE_DIR})
target_link_libraries(bwk_pugixml INTERFACE ${PUGIXML_STATIC})
