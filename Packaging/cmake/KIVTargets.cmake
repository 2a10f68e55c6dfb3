# How every target of this project is compiled: one interface target, so that warnings,
# sanitizers and path mapping are the same everywhere.
add_library(kiv_flags INTERFACE)
target_compile_options(kiv_flags INTERFACE
    -Wall -Wextra -Wconversion -Wshadow
    # Assertion texts and log lines have file names relative to the tree, not to this machine.
    -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)
# Paths relative to the build folder, so that a compiler cache works for another clone.
file(RELATIVE_PATH kiv_source_from_build ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR})
target_compile_options(kiv_flags INTERFACE -fmacro-prefix-map=${kiv_source_from_build}=)

# Tests, fuzz targets and benchmarks, linked after kiv_flags. Their edge values often change sign, for
# which only clang warns with -Wconversion.
add_library(kiv_test_flags INTERFACE)
target_compile_options(kiv_test_flags INTERFACE -Wno-sign-conversion)

if(KIV_SANITIZE)
    target_compile_options(kiv_flags INTERFACE
        -fsanitize=${KIV_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(kiv_flags INTERFACE -fsanitize=${KIV_SANITIZE})
endif()
if(KIV_COVERAGE)
    # Also of processes that end with _exit.
    add_library(kiv_coverage_registry SHARED ${PROJECT_SOURCE_DIR}/Tests/Support/CoverageRegistry.cpp)
    set_target_properties(kiv_coverage_registry PROPERTIES CXX_VISIBILITY_PRESET default)
    add_library(kiv_coverage_writer OBJECT ${PROJECT_SOURCE_DIR}/Tests/Support/CoverageWriter.cpp)
    target_compile_options(kiv_flags INTERFACE --coverage)
    target_link_options(kiv_flags INTERFACE --coverage)
    target_link_libraries(kiv_flags INTERFACE $<TARGET_OBJECTS:kiv_coverage_writer> kiv_coverage_registry)
endif()
if(KIV_BUILD_FUZZERS)
    # Coverage feedback in the libraries; each fuzz target adds the driver itself.
    target_compile_options(kiv_flags INTERFACE -fsanitize=fuzzer-no-link)
endif()

# What an installed library or program is compiled and linked with; the presets for release switch it on. Debian's own
# flags for packages are the same, and the numbers are in Docs/decisions/0067-hardening-and-its-price.md.
add_library(kiv_hardening INTERFACE)
if(KIV_HARDEN)
    # Undefined first, because some compilers define another level, and a second definition is a warning.
    target_compile_options(kiv_hardening INTERFACE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -fstack-protector-strong)
    # Each is an error on the other architecture.
    if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64)$")
        target_compile_options(kiv_hardening INTERFACE -fcf-protection)
    elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
        target_compile_options(kiv_hardening INTERFACE -mbranch-protection=standard)
    endif()
    target_link_options(kiv_hardening INTERFACE -Wl,-z,relro,-z,now)
endif()

# An undefined name is an error here, not at a host's start. With clang the program defines the
# sanitizers' own names, so sanitizer builds omit the option.
if(NOT KIV_SANITIZE AND NOT KIV_BUILD_FUZZERS)
    target_link_options(kiv_flags INTERFACE -Wl,-z,defs)
endif()

# The types of a library's interface, for Scripts/check-abi. The sources of exported names are compiled with -g, and
# what that adds goes into a file beside the library, so that an installed library is as small as without.
function(kiv_describe_abi library)
    if(NOT KIV_DESCRIBE_ABI OR NOT CMAKE_CXX_COMPILER_ID STREQUAL GNU)
        return()
    endif()
    set_source_files_properties(${ARGN} PROPERTIES
        COMPILE_OPTIONS "-g;-fno-var-tracking;-fdebug-prefix-map=${PROJECT_BINARY_DIR}=.;-fdebug-prefix-map=${PROJECT_SOURCE_DIR}=.")
    set(file $<TARGET_FILE:${library}>)
    add_custom_command(TARGET ${library} POST_BUILD
        COMMAND ${CMAKE_OBJCOPY} --only-keep-debug ${file} ${file}.debug
        COMMAND ${CMAKE_OBJCOPY} --strip-debug --add-gnu-debuglink=${file}.debug ${file}
        VERBATIM)
endfunction()

find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
