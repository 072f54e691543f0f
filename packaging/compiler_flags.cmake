# Warnings, sanitizers and hardening. Our flags come before those of the user, who has the last word.
include(CheckCXXCompilerFlag)
include(CheckCXXSourceCompiles)
include(CheckPIESupported)

set(flags -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor)
if(WARNINGS_AS_ERRORS)
  list(APPEND flags -Werror)
  # GCC 11 reports a read past the end wherever it inlines std::string_view::find.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 12)
    list(APPEND flags -Wno-error=stringop-overread)
  endif()
endif()

if(SANITIZE)
  list(APPEND flags -fsanitize=${SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${SANITIZE})
elseif(NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
  check_pie_supported(LANGUAGES CXX)
  add_link_options(LINKER:-z,relro,-z,now)
  # Each processor has one of the last two.
  foreach(flag
      -fstack-protector-strong -fstack-clash-protection -fcf-protection -mbranch-protection=standard)
    string(MAKE_C_IDENTIFIER "HAVE${flag}" known)
    check_cxx_compiler_flag(${flag} ${known})
    if(${known})
      list(APPEND flags ${flag})
    endif()
  endforeach()
  if(NOT CMAKE_CXX_FLAGS MATCHES "_FORTIFY_SOURCE")
    # The C library warns where it knows level 3 and the compiler does not.
    set(CMAKE_REQUIRED_FLAGS "-O2 -Werror -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3")
    check_cxx_source_compiles("#include <cstring>\nint main() {}" HAVE_FORTIFY_SOURCE_3)
    unset(CMAKE_REQUIRED_FLAGS)
    if(HAVE_FORTIFY_SOURCE_3)
      list(APPEND flags -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3)
    else()
      list(APPEND flags -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
    endif()
  endif()
endif()

list(JOIN flags " " flags)
set(CMAKE_CXX_FLAGS "${flags} ${CMAKE_CXX_FLAGS}")
