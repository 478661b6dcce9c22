#include "tools/leftovers.h"

#include "backends/zuPointCache2IO.h"
#include "tools/terminal.h"

namespace kelcache {
namespace {

unsigned int CountLeftovers(const std::string& file, Format format) {
  if (format == kelsdk::KelCache::ePC2Format) {
    return kelsdk::zuPointCache2IO::leftovers(file.c_str(), nullptr, nullptr);
  }
  if (format == kelsdk::KelCache::eNCFormat) {
    const NCName name(file);
    return kelsdk::zuCacheFileInterface::leftovers(name.folder.c_str(), name.baseName.c_str(),
                                                   nullptr, nullptr);
  }
  return 0;
}

}  // namespace

void TellOfLeftovers(const std::string& file, Format format) {
  const unsigned int count = CountLeftovers(file, format);
  if (count == 0) return;
  PrintError(file + ": " + (count == 1 ? "a writer" : "writers") +
             " died and left a part of a cache beside it; kelcache recover " + file + " saves it");
}

}  // namespace kelcache
