#include <pybind11/stl.h>

#include "python/channel.h"
#include "python/errors.h"
#include "python/open_cache.h"
#include "python/verbs.h"
#include "python/writer.h"

PYBIND11_MODULE(_core, module) {
  module.attr("__version__") = KELCACHE_VERSION;
  kelpython::TranslateErrors();
  kelpython::BindCache(module);
  kelpython::BindChannel(module);
  kelpython::BindWriter(module);
  kelpython::BindVerbs(module);
}
