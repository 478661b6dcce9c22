// The operations on whole caches that need no open one: converting, verifying, recovering.
#include "backends/io/guard.h"
#include "backends/nc/convert.h"
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
  return {ticksPerFrame, options.exactRate, options.firstSample, options.sampleCount};
}

// What the two conversions share around their work.
template <typename Work>
bool Convert(const char* folder, const char* baseName,
             const zuCacheFileInterface::conversionWatch& watch, Work&& work) {
  Error error;
  const bool converted = io::Guarded(error, false, [&] {
    nc::CacheName name;
    return nc::MakeCacheName(folder, baseName, &name, error) && work(name, error);
  });
  if (!converted && watch.report != nullptr) watch.report(watch.context, error.text());
  return converted;
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
  return Convert(folder, baseName, watch, [&](const nc::CacheName& name, Error& error) {
    return nc::ConvertFromPc2(pc2FileName, name, format == eFilePerFrame, dataFileTag,
                              OptionsOf(ticksPerFrame, options), {watch.proceed, watch.context},
                              error);
  });
}

bool zuCacheFileInterface::convertToPc2(const char* pc2FileName, const char* folder,
                                        const char* baseName, unsigned int channelIndex,
                                        int ticksPerFrame, const conversionOptions& options,
                                        const conversionWatch& watch) {
  return Convert(folder, baseName, watch, [&](const nc::CacheName& name, Error& error) {
    return nc::ConvertToPc2(pc2FileName, name, channelIndex, OptionsOf(ticksPerFrame, options),
                            {watch.proceed, watch.context}, error);
  });
}

bool zuCacheFileInterface::verify(const char* folder, const char* baseName, reportFunction report,
                                  void* context) {
  const nc::Report lines{report, context};
  Error error;
  nc::CacheName name;
  const bool sound = io::Guarded(error, false, [&] {
    return nc::MakeCacheName(folder, baseName, &name, error) && nc::Verify(name, lines);
  });
  if (error) lines.Say("%s", error.text());
  return sound;
}

bool zuCacheFileInterface::recover(const char* folder, const char* baseName,
                                   unsigned int& blockCount, reportFunction report, void* context) {
  return recover(folder, baseName, {}, blockCount, report, context);
}

bool zuCacheFileInterface::recover(const char* folder, const char* baseName,
                                   const recoverOptions& options, unsigned int& blockCount,
                                   reportFunction report, void* context) {
  const nc::Report lines{report, context};
  Error error;
  nc::CacheName name;
  blockCount = 0;
  const bool saved = io::Guarded(error, false, [&] {
    return nc::MakeCacheName(folder, baseName, &name, error) &&
           nc::Recover(name, options.force, &blockCount, lines);
  });
  if (error) lines.Say("%s", error.text());
  if (!saved) blockCount = 0;
  return saved;
}

unsigned int zuCacheFileInterface::leftovers(const char* folder, const char* baseName,
                                             reportFunction report, void* context) {
  Error error;
  nc::CacheName name;
  return io::Guarded(error, 0U, [&] {
    return nc::MakeCacheName(folder, baseName, &name, error)
               ? nc::CountLeftovers(name, {report, context})
               : 0U;
  });
}

unsigned int zuCacheFileInterface::dataFilesInTheWay(const char* folder, const char* baseName,
                                                     fileFunction told, void* context) {
  Error error;
  nc::CacheName name;
  unsigned int count = 0;
  io::Guarded(error, false, [&] {
    return nc::MakeCacheName(folder, baseName, &name, error) &&
           nc::ForEachInTheWay(
               name,
               [&](const std::string& fileName, bool isReplaceable) {
                 ++count;
                 if (told != nullptr) told(context, fileName.c_str(), isReplaceable);
               },
               error);
  });
  return count;
}

}  // namespace kelsdk
