add_library(kterror::kterror INTERFACE IMPORTED GLOBAL)
target_include_directories(kterror::kterror INTERFACE ${CMAKE_CURRENT_LIST_DIR}/include)
