# {fmt} (libfmt-dev) as the second baseline of the print benchmark only.
find_package(fmt REQUIRED)
target_link_libraries(bench_print PRIVATE fmt::fmt)
