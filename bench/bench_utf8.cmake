# ICU's UTF-8 conversions (libicuuc), for the benchmark only.
find_package(ICU REQUIRED COMPONENTS uc)
target_link_libraries(bench_utf8 PRIVATE ICU::uc)
