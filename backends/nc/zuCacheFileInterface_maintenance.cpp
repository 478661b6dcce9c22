// The operations of the interface on whole caches, which need no open one.
#include "backends/io/guard.h"
#include "backends/nc/clean.h"
#include "backends/nc/convert.h"
#include "backends/nc/follow.h"
#include "backends/nc/owners.h"
#include "backends/nc/recover.h"
#include "backends/nc/remains.h"
#include "backends/nc/verify.h"
#include "backends/zuCacheFileInterface.h"

namespace kelsdk {

using io::Error;

namespace {

nc::ConvertOptions OptionsOf(int ticksPerFrame,
                             const zuCacheFileInterface::conversionOptions& options) {
  return {ticksPerFrame,       options.exactRate,       options.firstSample,
          options.sampleCount, options.compactEncoding, options.maximumError};
}

// Runs the body of an operation on the cache of a name. A failure's reason goes to `report`.
template <typename Result, typename Body>
Result Run(const char* folder, const char* baseName, Result onFailure, const io::Report& report,
           Body&& body) {
  Error error;
  const Result result = io::Guarded(error, onFailure, [&] {
    nc::CacheName name;
    return nc::MakeCacheName(folder, baseName, &name, error) ? body(name, error) : onFailure;
  });
  if (result == onFailure && error) report.Say("%s", error.text());
  return result;
}

}  // namespace

bool zuCacheFileInterface::convertFromPc2(const char* pc2FileName, const char* folder,
                                          const char* baseName, cacheFileFormat format,
                                          const char* dataFileTag, int ticksPerFrame) {
  return convertFromPc2(pc2FileName, folder, baseName, format, dataFileTag, ticksPerFrame, {}, {});
}

bool zuCacheFileInterface::convertToPc2(const char* pc2FileName, const char* folder,
                                        const char* baseName, unsigned int channelIndex,
                                        int ticksPerFrame) {
  return convertToPc2(pc2FileName, folder, baseName, channelIndex, ticksPerFrame, {}, {});
}

bool zuCacheFileInterface::convertFromPc2(const char* pc2FileName, const char* folder,
                                          const char* baseName, cacheFileFormat format,
                                          const char* dataFileTag, int ticksPerFrame,
                                          const conversionOptions& options,
                                          const conversionWatch& watch) {
  return Run(folder, baseName, false, {watch.report, watch.context},
             [&](const nc::CacheName& name, Error& error) {
               return nc::ConvertFromPc2(pc2FileName, name, format == eFilePerFrame, dataFileTag,
                                         OptionsOf(ticksPerFrame, options),
                                         {watch.proceed, watch.context}, error);
             });
}

bool zuCacheFileInterface::convertToPc2(const char* pc2FileName, const char* folder,
                                        const char* baseName, unsigned int channelIndex,
                                        int ticksPerFrame, const conversionOptions& options,
                                        const conversionWatch& watch) {
  return Run(folder, baseName, false, {watch.report, watch.context},
             [&](const nc::CacheName& name, Error& error) {
               return nc::ConvertToPc2(pc2FileName, name, channelIndex,
                                       OptionsOf(ticksPerFrame, options),
                                       {watch.proceed, watch.context}, error);
             });
}

bool zuCacheFileInterface::verify(const char* folder, const char* baseName, reportFunction report,
                                  void* context, proceedFunction proceed) {
  const io::Report lines{report, context, proceed};
  return Run(folder, baseName, false, lines,
             [&](const nc::CacheName& name, Error&) { return nc::Verify(name, lines); });
}

bool zuCacheFileInterface::recover(const char* folder, const char* baseName,
                                   unsigned int& blockCount, reportFunction report, void* context) {
  return recover(folder, baseName, {}, blockCount, report, context);
}

bool zuCacheFileInterface::recover(const char* folder, const char* baseName,
                                   const recoverOptions& options, unsigned int& blockCount,
                                   reportFunction report, void* context) {
  const io::Report lines{report, context};
  blockCount = 0;
  const bool saved = Run(folder, baseName, false, lines, [&](const nc::CacheName& name, Error&) {
    return nc::Recover(name, options.force, &blockCount, lines);
  });
  if (!saved) blockCount = 0;
  return saved;
}

bool zuCacheFileInterface::isPartialFolder(const char* name) {
  Error ignored;
  return name != nullptr &&
         io::Guarded(ignored, false, [&] { return nc::BaseOfPartialFolder(name).has_value(); });
}

unsigned int zuCacheFileInterface::leftovers(const char* folder, const char* baseName,
                                             reportFunction report, void* context) {
  return Run(folder, baseName, 0U, {}, [&](const nc::CacheName& name, Error&) {
    return nc::CountLeftovers(name, {report, context});
  });
}

unsigned int zuCacheFileInterface::dataFilesInTheWay(const char* folder, const char* baseName,
                                                     fileFunction told, void* context) {
  unsigned int count = 0;
  Run(folder, baseName, false, {}, [&](const nc::CacheName& name, Error& error) {
    return nc::ForEachInTheWay(
        name,
        [&](const std::string& fileName, bool isReplaceable) {
          ++count;
          if (told != nullptr) told(context, fileName.c_str(), isReplaceable);
        },
        error);
  });
  return count;
}

bool zuCacheFileInterface::follow(const char* folder, const char* baseName,
                                  CacheProgressFunction told, reportFunction report,
                                  void* context) {
  const io::Report lines{report, context};
  return Run(folder, baseName, false, lines, [&](const nc::CacheName& name, Error& error) {
    return nc::Follow(name, told, lines, error);
  });
}

bool zuCacheFileInterface::listLeftovers(const char* folder, CacheLeftoverFunction told,
                                         reportFunction report, void* context) {
  return io::ListLeftovers(nc::FindLeftovers, folder, told, {report, context});
}

bool zuCacheFileInterface::removeLeftover(const char* folder, const char* name, bool force,
                                          reportFunction report, void* context) {
  return io::RemoveLeftover(nc::RemoveLeftover, folder, name, force, {report, context});
}

}  // namespace kelsdk
