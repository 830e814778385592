# The instrumented builds. The cross compiler emits the calls and brings no run-time; ours stand in
# tests/sanitise/. Every target made after this file is instrumented.
set(_runtime ${PROJECT_SOURCE_DIR}/tests/sanitise)
if(QX_SANITISE STREQUAL "undefined")
  add_library(qx_sanitise STATIC ${_runtime}/undefined_runtime.c)
  add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-fsanitize=undefined>
    $<$<COMPILE_LANGUAGE:CXX>:-fno-sanitize=vptr>)
  link_libraries($<BUILD_INTERFACE:qx_sanitise>)
elseif(QX_SANITISE STREQUAL "address")
  add_library(qx_sanitise SHARED ${_runtime}/address_runtime.cpp)
  add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-fsanitize=address>
    $<$<COMPILE_LANGUAGE:CXX>:--param=asan-use-after-return=0>
    $<$<COMPILE_LANGUAGE:CXX>:-Wno-maybe-uninitialized>)  # seen in <regex> where there is none
  add_compile_definitions(QX_SANITISE_ADDRESS=1)
  link_libraries($<BUILD_INTERFACE:qx_sanitise>)
  # The arena writes into what was a fibre's stack, where marks of its frames may be left.
  file(GLOB _arena CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/qx/memory/*.cpp)
  set_source_files_properties(${_arena} PROPERTIES COMPILE_OPTIONS -fno-sanitize=address)
  # Wine's own heap lies where chance puts it, and may be put where the shadow has to be.
  execute_process(COMMAND setarch -R true RESULT_VARIABLE _refused ERROR_QUIET)
  if(CMAKE_CROSSCOMPILING_EMULATOR AND NOT _refused)
    list(PREPEND CMAKE_CROSSCOMPILING_EMULATOR setarch -R)
  endif()
elseif(QX_SANITISE)
  message(FATAL_ERROR "QX_SANITISE is undefined, address or empty, not ${QX_SANITISE}")
endif()
