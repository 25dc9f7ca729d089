# Common settings for every target of the project.
function(zwelk_target_defaults target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wno-unused-parameter)
  # GCC 12 misreads writes through QByteArray::data() into a detached array
  # as writes into Qt's shared empty array.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(${target} PRIVATE -Wno-stringop-overflow)
  endif()
  if(ZWELK_STRICT)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
  # Qt's string literal conversions stay explicit everywhere.
  # Q_EMIT instead of emit: TBB headers use "emit" as a name.
  target_compile_definitions(${target} PRIVATE QT_NO_CAST_FROM_BYTEARRAY QT_NO_EMIT)
endfunction()

# Engine libraries may use Qt Core and Gui value types at most. This check
# makes a link to Widgets or OpenGL from a headless layer fail the configure.
function(zwelk_headless_library target)
  get_target_property(libs ${target} LINK_LIBRARIES)
  foreach(lib IN LISTS libs)
    if(lib MATCHES "Qt5::(Widgets|OpenGL)|OpenGL::")
      message(FATAL_ERROR "${target} is a headless library and must not link ${lib}")
    endif()
  endforeach()
endfunction()
