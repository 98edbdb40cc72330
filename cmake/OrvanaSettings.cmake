# One target carries language level, warnings and defines for everything built here.
add_library(orvana_settings INTERFACE)
target_compile_features(orvana_settings INTERFACE cxx_std_17)
# Qt's logging macros are called without their variadic arguments, which clang calls pedantic.
target_compile_options(orvana_settings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wold-style-cast
    -Wconversion -Wno-sign-conversion -Wformat=2 -Wno-gnu-zero-variadic-macro-arguments
    $<$<BOOL:${ORVANA_WARNINGS_AS_ERRORS}>:-Werror>)
target_compile_definitions(orvana_settings INTERFACE
    QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_NO_CAST_FROM_BYTEARRAY QT_NO_URL_CAST_FROM_STRING
    QT_USE_QSTRINGBUILDER QT_NO_FOREACH QT_NO_NARROWING_CONVERSIONS_IN_CONNECT)

if(ORVANA_SANITIZE)
    target_compile_options(orvana_settings INTERFACE -fsanitize=address,undefined -fno-omit-frame-pointer)
    target_link_options(orvana_settings INTERFACE -fsanitize=address,undefined)
endif()

if(ORVANA_BUILD_FUZZ)
    set(fuzz_options -fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer
        -fno-sanitize-recover=undefined)
    target_compile_options(orvana_settings INTERFACE ${fuzz_options})
    target_link_options(orvana_settings INTERFACE ${fuzz_options})
endif()

# Hardening of what is handed out; _FORTIFY_SOURCE needs an optimised build and
# hides overflows from the address sanitizer.
target_compile_options(orvana_settings INTERFACE -fstack-protector-strong)
if(NOT ORVANA_SANITIZE AND NOT ORVANA_BUILD_FUZZ)
    target_compile_options(orvana_settings INTERFACE $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
endif()
target_link_options(orvana_settings INTERFACE -Wl,-z,relro,-z,now)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
    set(CMAKE_CXX_COMPILER_LAUNCHER "${CCACHE_PROGRAM}")
endif()
