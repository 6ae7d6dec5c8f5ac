# What the Windows build adds for a release that can ship: rlottie as the
# replaceable rlottie.dll beside the programs, the version numbers of the
# version resources, and binaries that do not depend on where or when they
# were built. Included from the top CMakeLists.txt after the dependency prefix.

# rlottie is LGPL-2.1: calder.exe and calder-check.exe import it from
# rlottie.dll in their own folder, which the build fills beside them.
find_package(rlottie CONFIG REQUIRED)
get_target_property(CALDER_RLOTTIE_TYPE rlottie::rlottie TYPE)
if(NOT CALDER_RLOTTIE_TYPE STREQUAL "SHARED_LIBRARY")
  message(FATAL_ERROR "rlottie in ${CALDER_MINGW_PREFIX} is the old static build: "
                      "run scripts/build-mingw-deps to rebuild it as rlottie.dll")
endif()
add_custom_command(OUTPUT ${CMAKE_BINARY_DIR}/rlottie.dll
  COMMAND ${CMAKE_COMMAND} -E copy_if_different $<TARGET_FILE:rlottie::rlottie> ${CMAKE_BINARY_DIR}/rlottie.dll
  DEPENDS $<TARGET_FILE:rlottie::rlottie>)
add_custom_target(calder_rlottie_dll ALL DEPENDS ${CMAKE_BINARY_DIR}/rlottie.dll)

# FILEVERSION and "2026.4.22.1" from the tool version "20260422-01".
file(STRINGS ${CMAKE_SOURCE_DIR}/base/tool_version.h CALDER_TOOL_VERSION_LINE
     REGEX "^#define CALDER_TOOL_VERSION ")
if(NOT CALDER_TOOL_VERSION_LINE MATCHES "\"([0-9][0-9][0-9][0-9])([0-9][0-9])([0-9][0-9])-([0-9]+)\"")
  message(FATAL_ERROR "base/tool_version.h: CALDER_TOOL_VERSION is not YYYYMMDD-NN")
endif()
set(CALDER_VERSION_PARTS "")
foreach(i 1 2 3 4)
  math(EXPR part "${CMAKE_MATCH_${i}}")
  list(APPEND CALDER_VERSION_PARTS ${part})
endforeach()
list(JOIN CALDER_VERSION_PARTS "," CALDER_VERSION_COMMAS)
list(JOIN CALDER_VERSION_PARTS "." CALDER_VERSION_DOTTED)
set(CALDER_GENERATED_DIR ${CMAKE_BINARY_DIR}/generated)
file(CONFIGURE OUTPUT ${CALDER_GENERATED_DIR}/tool_version_numbers.h CONTENT
  "#define CALDER_VERSION_COMMAS ${CALDER_VERSION_COMMAS}\n#define CALDER_VERSION_DOTTED \"${CALDER_VERSION_DOTTED}\"\n")
include_directories(${CALDER_GENERATED_DIR})

# Reproducible: no link time stamp, debug information (kept by the release in
# a separate file) without the checkout's, the build's or the prefix's path,
# and archives without dates or owners.
add_compile_options(-g
  -fdebug-prefix-map=${CMAKE_SOURCE_DIR}=.
  -fdebug-prefix-map=${CMAKE_BINARY_DIR}=build
  -fdebug-prefix-map=${CALDER_MINGW_PREFIX}=calder-deps
  -fmacro-prefix-map=${CALDER_MINGW_PREFIX}/=)
add_link_options(-Wl,--no-insert-timestamp)
foreach(lang C CXX)
  set(CMAKE_${lang}_ARCHIVE_CREATE "<CMAKE_AR> qcD <TARGET> <LINK_FLAGS> <OBJECTS>")
  set(CMAKE_${lang}_ARCHIVE_APPEND "<CMAKE_AR> qD <TARGET> <LINK_FLAGS> <OBJECTS>")
  set(CMAKE_${lang}_ARCHIVE_FINISH "<CMAKE_RANLIB> -D <TARGET>")
endforeach()

# windres reports no dependencies: rebuild the resources when what they include changes.
set(CALDER_RESOURCE_INPUTS ${CMAKE_SOURCE_DIR}/base/win32/version_info.rc
    ${CMAKE_SOURCE_DIR}/base/tool_version.h ${CALDER_GENERATED_DIR}/tool_version_numbers.h)
set_source_files_properties(${CMAKE_SOURCE_DIR}/app/win32/calder.rc PROPERTIES OBJECT_DEPENDS
  "${CALDER_RESOURCE_INPUTS};${CMAKE_SOURCE_DIR}/app/win32/calder.manifest")
set_source_files_properties(${CMAKE_SOURCE_DIR}/check/win32/calder-check.rc PROPERTIES
  OBJECT_DEPENDS "${CALDER_RESOURCE_INPUTS};${CMAKE_SOURCE_DIR}/check/win32/calder-check.manifest")
