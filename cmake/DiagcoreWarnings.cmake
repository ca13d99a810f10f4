# Warnings are errors on the project's own code.
add_library(diagcore_warnings INTERFACE)
target_compile_options(diagcore_warnings INTERFACE -Wall -Wextra -Werror)
