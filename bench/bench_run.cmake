# halvern run as a whole process against cp and the libvips command line
# (Debian libvips-tools, listed in bench/packages.txt): it needs the host,
# the sample bundle and the vips program.
if(TARGET halvern)
  find_program(HALV_VIPS_PROGRAM vips)
  target_compile_definitions(bench_run PRIVATE HALVERN_PATH="$<TARGET_FILE:halvern>"
    VIPS_PATH="$<IF:$<BOOL:${HALV_VIPS_PROGRAM}>,${HALV_VIPS_PROGRAM},/usr/bin/vips>")
  add_dependencies(bench_run halvern halv_bundles)
endif()
