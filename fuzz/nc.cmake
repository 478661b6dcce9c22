kel_fuzz_target(nc_description nc_description.cpp LIBS kel_nc kel_io)
kel_fuzz_target(nc_data nc_data.cpp LIBS kel_nc kel_io)
