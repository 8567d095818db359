# OpenSSL's MD5 (libcrypto), linked into the benchmark only.
find_package(OpenSSL REQUIRED COMPONENTS Crypto)
target_link_libraries(bench_md5 PRIVATE OpenSSL::Crypto)
