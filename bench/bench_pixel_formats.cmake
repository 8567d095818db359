# halvern convert as a process against cp: it needs the host built.
if(TARGET halvern)
  target_compile_definitions(bench_pixel_formats PRIVATE HALVERN_PATH="$<TARGET_FILE:halvern>")
  add_dependencies(bench_pixel_formats halvern)
endif()
