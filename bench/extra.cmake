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

# bench_date: Howard Hinnant's date library (its header-only part), for the
# benchmark only.
find_package(date CONFIG REQUIRED)
target_link_libraries(bench_date PRIVATE date::date)
