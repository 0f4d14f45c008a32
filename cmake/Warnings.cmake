# Every target of ours links clarovi_warnings; CI turns the warnings into errors.
add_library(clarovi_warnings INTERFACE)
target_compile_options(clarovi_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
  $<$<BOOL:${CLAROVI_WERROR}>:-Werror>)
# Under the sanitizers GCC's flow analysis loses track of std::optional and std::shared_ptr
# members and calls them maybe uninitialized where the plain build proves them set.
if(CLAROVI_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(clarovi_warnings INTERFACE -Wno-maybe-uninitialized)
endif()
