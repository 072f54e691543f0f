# Warnings and sanitizers. Our flags come before those of the user, who has the last word.
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
endif()

list(JOIN flags " " flags)
set(CMAKE_CXX_FLAGS "${flags} ${CMAKE_CXX_FLAGS}")
