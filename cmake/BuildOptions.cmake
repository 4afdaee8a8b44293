# What every project of this tree builds with. Included by each of them, so that one built on its own
# is built the same way.
include_guard(GLOBAL)

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_AUTOMOC ON)

# What only those who build modules need says "development".
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME runtime)
include(GNUInstallDirs)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)

option(WARNINGS_AS_ERRORS "Treat compiler warnings as errors" OFF)
option(ENABLE_CLANG_TIDY "Run clang-tidy with the compiler" OFF)
set(SANITIZE "" CACHE STRING "Sanitizers to build with, such as address,undefined")

if(SANITIZE)
    add_compile_options(-fsanitize=${SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${SANITIZE})
    # Qt's assertions and the kit's own, which else only a Debug build has.
    add_compile_definitions(QT_FORCE_ASSERTS)
endif()

# Of the preset release-pgo, see bench/train: "generate" counts what is done how often, "use" compiles
# by what was counted.
set(PROFILE "" CACHE STRING "A profile of GCC: generate or use")
if(PROFILE)
    set(profile_folder ${CMAKE_BINARY_DIR}/profile)
    add_compile_options(-fprofile-${PROFILE}=${profile_folder} -Wno-missing-profile
        $<IF:$<STREQUAL:${PROFILE},use>,-fprofile-partial-training,-fprofile-update=atomic>)
    add_link_options(-fprofile-${PROFILE}=${profile_folder})
endif()

# Our own targets ask for this; generated code and other people's headers stay out of it.
function(use_project_warnings target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion
        -Wnon-virtual-dtor -Woverloaded-virtual $<$<BOOL:${WARNINGS_AS_ERRORS}>:-Werror>)
    # Qt's logging macros may be called without arguments, which clang finds pedantically wrong.
    target_compile_options(${target} PRIVATE
        $<$<CXX_COMPILER_ID:Clang>:-Wno-gnu-zero-variadic-macro-arguments>)
    target_compile_definitions(${target} PRIVATE QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII
        QT_NO_URL_CAST_FROM_STRING QT_DEPRECATED_WARNINGS)
    if(ENABLE_CLANG_TIDY)
        set_target_properties(${target} PROPERTIES CXX_CLANG_TIDY clang-tidy)
    endif()
endfunction()

# For programs that carry orders: a read of 1 register takes 10 % fewer instructions with it than with
# the C library's malloc, one of 63 registers 31 %. The sanitizers bring their own. A library has none:
# that is for the program to choose.
function(use_fast_malloc program)
    if(NOT SANITIZE)
        find_library(MIMALLOC_LIBRARY mimalloc REQUIRED)
        target_link_libraries(${program} PRIVATE ${MIMALLOC_LIBRARY})
    endif()
endfunction()
