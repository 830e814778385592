# A callable that does not fit is refused by the compiler, in words.
foreach(_size 512 513)
  set(_name tasks.Callable.of_${_size}_bytes)
  file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/callable_${_size}.cpp
    "#include \"qx/tasks/task.h\"\n"
    "struct Callable { char bytes[${_size}]; void operator()() {} };\n"
    "void spawn() {\n"
    "    task::spawn(task::FiberMode::fiberful, task::ThreadMask::any_thread,\n"
    "                task::Priority::normal, Callable{});\n"
    "}\n")
  add_test(NAME ${_name} COMMAND ${CMAKE_CXX_COMPILER} -std=c++20 -fsyntax-only
    -I${PROJECT_SOURCE_DIR} ${CMAKE_CURRENT_BINARY_DIR}/callable_${_size}.cpp)
  set_tests_properties(${_name} PROPERTIES TIMEOUT 120 LABELS tasks)
endforeach()
set_tests_properties(tasks.Callable.of_513_bytes PROPERTIES
  PASS_REGULAR_EXPRESSION "a task's callable may take 512 bytes at most")
