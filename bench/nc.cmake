kel_bench(nc_bench nc_bench.cpp LIBS kelcache_sdk)
kel_bench(nc_codec_bench nc_codec_bench.cpp LIBS kel_nc kel_pc2)
