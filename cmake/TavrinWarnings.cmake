# Warnings are errors in our own targets; third-party headers come in as SYSTEM.
function(tavrin_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Werror)
  # The space records are plain values with virtual serialisation and, by
  # design, no virtual destructor; clang flags destroying them inside
  # std::optional although they are never deleted through a base pointer.
  if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    target_compile_options(${target} PRIVATE -Wno-delete-non-abstract-non-virtual-dtor)
  endif()
endfunction()
