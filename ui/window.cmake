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
