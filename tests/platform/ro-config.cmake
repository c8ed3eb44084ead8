add_library(ro::ro INTERFACE IMPORTED GLOBAL)
target_include_directories(ro::ro INTERFACE ${CMAKE_CURRENT_LIST_DIR}/include)
