# The halvern host as a process against cp: it needs the host and the
# sample bundle built.
if(TARGET halvern)
  target_compile_definitions(bench_halvern PRIVATE HALVERN_PATH="$<TARGET_FILE:halvern>")
  add_dependencies(bench_halvern halvern halv_bundles)
endif()
