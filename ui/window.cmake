# The progress window and its controls over the skin framework: portable
# logic in ui/*.cpp on both builds, Win32 painters and the window in ui/win32/.
find_package(rlottie CONFIG REQUIRED)
file(GLOB CALDER_WINDOW_SOURCES CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/*.cpp)
if(WIN32)
  file(GLOB CALDER_WINDOW_WIN32_SOURCES CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/win32/*.cpp)
  list(APPEND CALDER_WINDOW_SOURCES ${CALDER_WINDOW_WIN32_SOURCES})
endif()
add_library(calder_window STATIC ${CALDER_WINDOW_SOURCES})
target_link_libraries(calder_window PUBLIC calder_ui rlottie::rlottie Threads::Threads)
if(WIN32)
  target_link_libraries(calder_window PUBLIC gdiplus gdi32 user32 shcore)
  # Whatever shows the window imports rlottie.dll from its own folder.
  add_dependencies(calder_window calder_rlottie_dll)
endif()

# The window's cost under Wine (bench/window_cost.sh runs it).
if(WIN32)
  add_executable(window_cost WIN32 ${CMAKE_SOURCE_DIR}/bench/win/window_cost.cpp)
  target_link_libraries(window_cost PRIVATE calder_window calder_win32 calder_skin_resource)
  set_target_properties(window_cost PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})
endif()

function(calder_window_wire_targets)
  if(TARGET calder_tests)
    target_link_libraries(calder_tests PRIVATE calder_window)
  endif()
  if(TARGET calder_win_tests)
    target_link_libraries(calder_win_tests PRIVATE calder_window)
  endif()
  if(TARGET calder)
    target_link_libraries(calder PRIVATE calder_window)
    # The animation ships beside the exe; the control reads it from there.
    add_custom_command(TARGET calder POST_BUILD
      COMMAND ${CMAKE_COMMAND} -E copy_if_different
              ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/loading_dark.json $<TARGET_FILE_DIR:calder>/loading_dark.json)
  endif()
endfunction()
cmake_language(DEFER DIRECTORY ${CMAKE_SOURCE_DIR} CALL calder_window_wire_targets)
