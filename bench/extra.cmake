# Outside baselines of the benchmarks.

# bench_md5: OpenSSL's MD5 (libcrypto), linked into the benchmark only.
find_package(OpenSSL REQUIRED COMPONENTS Crypto)
target_link_libraries(bench_md5 PRIVATE OpenSSL::Crypto)

# bench_halvern: the halvern host as a process against cp; it needs the
# host and the sample bundle built.
if(TARGET bench_halvern AND TARGET halvern)
  target_compile_definitions(bench_halvern PRIVATE HALVERN_PATH="$<TARGET_FILE:halvern>")
  add_dependencies(bench_halvern halvern dpk_halv)
endif()

# bench_workerpool: boost::asio::thread_pool (header-only); bench_coro:
# Boost.Context's fcontext.  Both from Debian's Boost, for the benchmarks
# only.
find_package(Boost 1.74 REQUIRED COMPONENTS context)
target_link_libraries(bench_workerpool PRIVATE Boost::headers)
target_link_libraries(bench_coro PRIVATE Boost::context)
