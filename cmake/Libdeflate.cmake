# libdeflate inflates the runtime archive in one piece; linked from its static archive so
# that the launcher stays self-contained.
find_path(LIBDEFLATE_INCLUDE_DIR libdeflate.h REQUIRED)
find_library(LIBDEFLATE_STATIC libdeflate.a)
if(NOT LIBDEFLATE_STATIC)
  message(FATAL_ERROR "libdeflate.a not found: run scripts/setup.sh")
endif()
add_library(bwk_libdeflate INTERFACE)
target_include_directories(bwk_libdeflate SYSTEM INTERFACE ${LIBDEFLATE_INCLUDE_DIR})
target_link_libraries(bwk_libdeflate INTERFACE ${LIBDEFLATE_STATIC})
