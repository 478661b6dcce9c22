#include "tests/cache/cache_test.h"
