# The NC back-end's benchmarks: include() this where Google Benchmark is found.
function(kel_nc_bench)
  add_executable(nc_bench ${PROJECT_SOURCE_DIR}/bench/nc_bench.cpp
                 ${PROJECT_SOURCE_DIR}/bench/nc_codec_table.cpp)
  target_link_libraries(nc_bench PRIVATE kel_nc kel_options benchmark::benchmark)
endfunction()
