# Warnings for our own targets; third-party headers come in as system includes.
function(quill_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wshadow -Wnon-virtual-dtor
                                           -Wold-style-cast -Woverloaded-virtual)
endfunction()
