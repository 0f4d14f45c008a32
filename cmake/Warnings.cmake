# Every target of ours links clarovi_warnings; CI turns the warnings into errors.
add_library(clarovi_warnings INTERFACE)
target_compile_options(clarovi_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
  $<$<BOOL:${CLAROVI_WERROR}>:-Werror>)
