# Language, warnings, sanitizers and compiler cache for every target of the project.

if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  message(FATAL_ERROR
    "gcc ${CMAKE_CXX_COMPILER_VERSION} destroys temporaries of a co_await expression twice. "
    "Build with clang 19: cmake --preset dev")
endif()

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_LINK_DEPENDS_NO_SHARED ON)

find_program(CCACHE ccache)
if(CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    # Precompiled headers carry time stamps that ccache has to be told to overlook.
    add_compile_options(-Xclang -fno-pch-timestamp)
  endif()
endif()

find_program(LLD ld.lld-19)
if(LLD AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  add_link_options(--ld-path=${LLD})
endif()

set(TOLVERA_SANITIZE "" CACHE STRING "Value of -fsanitize for every target, or empty")
if(TOLVERA_SANITIZE)
  add_compile_options(-fsanitize=${TOLVERA_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${TOLVERA_SANITIZE})
endif()

# clang 19 reports libstdc++ 12's own use of a deprecated function, inside std::stable_sort, as ours.
set(TOLVERA_WARNINGS -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror -Wno-deprecated-declarations)
