# Common compile settings for every Quorvale target.

add_library(quorvale_options INTERFACE)
target_compile_options(quorvale_options INTERFACE -Wall -Wextra -Wno-unused-parameter)
if(QUORVALE_WERROR)
    target_compile_options(quorvale_options INTERFACE -Werror)
endif()
if(QUORVALE_SANITIZE)
    target_compile_options(quorvale_options INTERFACE
        -fsanitize=${QUORVALE_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    target_link_options(quorvale_options INTERFACE -fsanitize=${QUORVALE_SANITIZE})
endif()
if(QUORVALE_FUZZ)
    # Coverage instrumentation for every library the fuzz programs link.
    target_compile_options(quorvale_options INTERFACE -fsanitize=fuzzer-no-link)
endif()
target_compile_definitions(quorvale_options INTERFACE
    QUORVALE_SOURCE_DATA_DIR="${PROJECT_SOURCE_DIR}/data"
    QUORVALE_VERSION_TEXT="${PROJECT_VERSION}")

# quorvale_library(<name> SOURCES ... DEPENDS ...)
# One static library per subsystem, with the alias quorvale::<name>; headers are
# included as "<folder>/<File>.h" from src/.
function(quorvale_library name)
    cmake_parse_arguments(ARG "" "" "SOURCES;DEPENDS;PRIVATE_DEPENDS" ${ARGN})
    add_library(${name} STATIC ${ARG_SOURCES})
    add_library(quorvale::${name} ALIAS ${name})
    target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(${name} PUBLIC quorvale_options ${ARG_DEPENDS})
    if(ARG_PRIVATE_DEPENDS)
        target_link_libraries(${name} PRIVATE ${ARG_PRIVATE_DEPENDS})
    endif()
endfunction()

# quorvale_test(<name> SOURCES ... DEPENDS ...)
# One GoogleTest executable per subsystem.
# One label a test program: gtest_discover_tests passes its properties on as separate words,
# so a list of labels would lose all but the first.
function(quorvale_test name)
    cmake_parse_arguments(ARG "" "" "SOURCES;DEPENDS;LABELS" ${ARGN})
    list(LENGTH ARG_LABELS label_count)
    if(label_count GREATER 1)
        message(FATAL_ERROR "${name}: give a test program one label, not ${ARG_LABELS}")
    endif()
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE quorvale_options GTest::gtest GTest::gtest_main
                                          GTest::gmock ${ARG_DEPENDS})
    gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60
                         PROPERTIES LABELS "${ARG_LABELS}")
    if(ARG_LABELS STREQUAL "threads" AND TARGET threaded-tests)
        add_dependencies(threaded-tests ${name})
    endif()
endfunction()

# quorvale_bench(<name> SOURCES ... DEPENDS ...)
function(quorvale_bench name)
    cmake_parse_arguments(ARG "" "" "SOURCES;DEPENDS" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE quorvale_options benchmark::benchmark ${ARG_DEPENDS})
endfunction()
