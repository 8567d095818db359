# Howard Hinnant's date library (its header-only part), for the benchmark only.
find_package(date CONFIG REQUIRED)
target_link_libraries(bench_date PRIVATE date::date)
