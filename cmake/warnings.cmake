# vnlib_warnings(target): the warnings that our own sources must be free of.
function(vnlib_warnings target)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)
endfunction()
