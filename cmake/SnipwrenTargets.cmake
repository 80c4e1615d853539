# The few commands that every folder's CMakeLists.txt is written with, so that flags and directions stand in one place.

add_library(snipwren_flags INTERFACE)
target_compile_options(snipwren_flags INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor -Woverloaded-virtual)
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    # g++ 12 reports overlapping copies inside std::string's own operator+ (GCC bug 105651).
    target_compile_options(snipwren_flags INTERFACE -Wno-restrict)
else()
    # xcb/xkb.h names a member "explicit"; who includes it has to rename that.
    target_compile_options(snipwren_flags INTERFACE -Wno-keyword-macro)
endif()
if(SNIPWREN_WERROR)
    target_compile_options(snipwren_flags INTERFACE -Werror)
endif()
target_include_directories(snipwren_flags INTERFACE ${PROJECT_SOURCE_DIR}/src)
target_compile_definitions(snipwren_flags INTERFACE SNIPWREN_VERSION="${PROJECT_VERSION}" ASIO_STANDALONE)
if(SNIPWREN_HARDEN)
    # The compiler may bring a lower level of its own, hence -U. Levels need optimisation: without it glibc warns.
    target_compile_options(snipwren_flags INTERFACE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3
                           -fstack-protector-strong -fstack-clash-protection)
    if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|i[3-6]86)$")
        target_compile_options(snipwren_flags INTERFACE -fcf-protection)
    endif()
    # Not CMAKE_POSITION_INDEPENDENT_CODE: that is -fPIC for the static libraries, which keeps g++ from inlining their
    # functions. Qt's own -fPIC, which its headers insist on, comes later on the command line and so wins.
    target_compile_options(snipwren_flags INTERFACE -fPIE)
    target_link_options(snipwren_flags INTERFACE -pie -Wl,-z,relro,-z,now -Wl,-z,noexecstack)
endif()
if(SNIPWREN_FUZZ)
    # The libraries too: without it the fuzzer sees no path but those of its own file.
    target_compile_options(snipwren_flags INTERFACE -fsanitize=fuzzer-no-link)
endif()
if(SNIPWREN_SANITIZE)
    target_compile_options(snipwren_flags INTERFACE -fsanitize=${SNIPWREN_SANITIZE} -fno-omit-frame-pointer
                           -fno-sanitize-recover=all)
    target_link_options(snipwren_flags INTERFACE -fsanitize=${SNIPWREN_SANITIZE})
endif()
find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE_PROGRAM} CACHE STRING "" FORCE)
endif()

# snipwren_library(parsing SOURCES a.cpp b.cpp LINK snipwren::base ICU::i18n)
# One static library per folder. LINK lists what the folder may use: it is the allowed direction.
function(snipwren_library name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LINK;PRIVATE_LINK" ${ARGN})
    add_library(snipwren_${name} STATIC ${ARG_SOURCES})
    add_library(snipwren::${name} ALIAS snipwren_${name})
    target_link_libraries(snipwren_${name} PUBLIC snipwren_flags ${ARG_LINK} PRIVATE ${ARG_PRIVATE_LINK})
endfunction()

# snipwren_test(parsing SOURCES aTest.cpp LINK snipwren::parsing [LABEL core])
# One test program per folder; every test in it is a CTest test of its own.
function(snipwren_test name)
    cmake_parse_arguments(ARG "" "LABEL" "SOURCES;LINK" ${ARGN})
    if(NOT ARG_LABEL)
        set(ARG_LABEL core)
    endif()
    add_executable(${name}_tests ${ARG_SOURCES})
    target_link_libraries(${name}_tests PRIVATE ${ARG_LINK} snipwren_test_support GTest::gtest GTest::gtest_main)
    target_include_directories(${name}_tests PRIVATE ${PROJECT_SOURCE_DIR}/tests)
    gtest_discover_tests(${name}_tests TEST_PREFIX ${name}. DISCOVERY_MODE PRE_TEST
                         PROPERTIES LABELS ${ARG_LABEL} TIMEOUT 300)
endfunction()

# snipwren_fuzz(DurationParser LINK snipwren::parsing) builds fuzz/DurationParserFuzz.cpp and replays
# fuzz/corpus/DurationParser as a test. With SNIPWREN_FUZZ the same source becomes a libFuzzer program.
function(snipwren_fuzz name)
    cmake_parse_arguments(ARG "" "" "LINK" ${ARGN})
    if(SNIPWREN_FUZZ)
        add_executable(${name}_fuzz ${name}Fuzz.cpp)
        target_compile_options(${name}_fuzz PRIVATE -fsanitize=fuzzer)
        target_link_options(${name}_fuzz PRIVATE -fsanitize=fuzzer)
    else()
        add_executable(${name}_fuzz ${name}Fuzz.cpp ${PROJECT_SOURCE_DIR}/fuzz/ReplayMain.cpp)
    endif()
    target_link_libraries(${name}_fuzz PRIVATE ${ARG_LINK})
    if(NOT TARGET fuzz_targets)
        add_custom_target(fuzz_targets)
    endif()
    add_dependencies(fuzz_targets ${name}_fuzz)
    add_test(NAME fuzz.${name} COMMAND ${name}_fuzz ${PROJECT_SOURCE_DIR}/fuzz/corpus/${name})
    set_tests_properties(fuzz.${name} PROPERTIES LABELS core)
endfunction()

# snipwren_bench(parsing SOURCES ParsingBench.cpp LINK snipwren::parsing)
function(snipwren_bench name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LINK" ${ARGN})
    add_executable(${name}_bench ${ARG_SOURCES})
    target_link_libraries(${name}_bench PRIVATE ${ARG_LINK} benchmark::benchmark)
endfunction()
