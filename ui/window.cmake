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
