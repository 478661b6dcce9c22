kel_bench(alembic_bench alembic_bench.cpp ${PROJECT_SOURCE_DIR}/tests/alembic/ogawa_writer.cpp
          LIBS kel_alembic kel_io)
# To count the system calls of the reader.
target_link_options(alembic_bench PRIVATE LINKER:--wrap=pread LINKER:--wrap=preadv)
