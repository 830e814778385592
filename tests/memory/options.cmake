# Some cases look at what the checks leave in released blocks.
target_compile_definitions(${program} PRIVATE $<$<BOOL:${QX_CHECKS}>:QX_CHECKS=1>)

# A real Lua runs on lua_alloc where `scripts/rivals.sh lua` has built one.
set(_rivals ${PROJECT_SOURCE_DIR}/build/rivals)
if(EXISTS ${_rivals}/lib/liblua.a)
  target_compile_definitions(${program} PRIVATE QX_TEST_LUA)
  target_include_directories(${program} SYSTEM PRIVATE ${_rivals}/include/lua)
  target_link_libraries(${program} PRIVATE ${_rivals}/lib/liblua.a)
endif()
