# boost::asio::thread_pool (header-only, Debian's Boost), for the benchmark only.
find_package(Boost 1.74 REQUIRED)
target_link_libraries(bench_workerpool PRIVATE Boost::headers)
