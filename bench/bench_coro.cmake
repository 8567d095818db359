# Boost.Context's fcontext (Debian's Boost), for the benchmark only.
find_package(Boost 1.74 REQUIRED COMPONENTS context)
target_link_libraries(bench_coro PRIVATE Boost::context)
