# fast_float (libfast-float-dev, header only) as a baseline of the scan benchmark only.
find_package(FastFloat REQUIRED)
target_link_libraries(bench_scan PRIVATE FastFloat::fast_float)
