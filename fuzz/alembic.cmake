foreach(layer container archive channels)
  kel_fuzz_target(alembic_${layer} alembic_${layer}.cpp LIBS kel_alembic kel_io)
endforeach()
