# A sanitizer build stops at the first report, so a CI run cannot pass with one.
if(CLAROVI_SANITIZE)
  add_compile_options(-fsanitize=${CLAROVI_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${CLAROVI_SANITIZE})
endif()
