# Warnings are errors in our own targets; third-party headers come in as SYSTEM.
function(tavrin_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Werror)
endfunction()
