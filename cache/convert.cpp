#include "cache/paths.h"
#include "cache/ticks.h"
#include "host/KelFileUtils.h"

namespace kelsdk {
namespace {

// Finds the source of a conversion: the absolute name as it stands, else the resolved relative name
// when folder + base name + extension of that exists.
bool LocateSource(const KelCache& cache, const char* extension, KelString* source,
                  KelStatus* status) {
  const CacheNames names(cache);
  if (!names.AreValid()) return Fail(status, KelStatus::eFailure);
  *source = names.absolute;
  if (!source->IsValid()) return Fail(status, KelStatus::eFailure);
  if (KelFileUtils::Exist(*source)) return true;
  *source = names.Resolved();
  const KelString second = CandidateOf(*source, extension);
  if (!second.IsValid()) return Fail(status, KelStatus::eFailure);
  if (KelFileUtils::Exist(second)) return true;
  const KelString looked = names.absolute + ", " + second;
  if (status != nullptr) {
    status->SetCode(KelStatus::eFailure, "Cache file not found: %s", looked.Buffer());
  }
  return false;
}

}  // namespace

bool KelCache::ConvertFromPC2ToNC(ENCFileCount fileCount, double samplingFrameRate,
                                  ENCBinaryFormat binaryFormat, KelStatus* status) {
  int ticks = 0;
  if (!TicksPerFrame(samplingFrameRate, &ticks)) return Fail(status, kInvalidSamplingRate);
  if (GetCacheFileFormat() != ePC2Format) return false;
  KelString source;
  if (!LocateSource(*this, ExtensionOf(ePC2Format), &source, status)) return false;
  const KelString folder = FolderOf(source);
  const KelString baseName = BaseNameOf(source);
  if (!folder.IsValid() || !baseName.IsValid()) return Fail(status, KelStatus::eFailure);
  const auto layout = fileCount == eNCFilePerFrame ? zuCacheFileInterface::eFilePerFrame
                                                   : zuCacheFileInterface::eSingleFile;
  const char* tag = binaryFormat == eNCBinaryC ? "ncc" : "ncx";
  if (!zuCacheFileInterface::convertFromPc2(source, folder, baseName, layout, tag, ticks)) {
    return Fail(status, "Conversion from PC2 to NC failed");
  }
  ClearStatus(status);
  return true;
}

bool KelCache::ConvertFromNCToPC2(double samplingFrameRate, unsigned int channelIndex,
                                  KelStatus* status) {
  constexpr unsigned int kExtensionLength = 3;
  constexpr char kFailed[] = "Conversion from NC to PC2 failed";
  int ticks = 0;
  if (!TicksPerFrame(samplingFrameRate, &ticks)) return Fail(status, kInvalidSamplingRate);
  if (GetCacheFileFormat() != eNCFormat) return false;
  KelString source;
  if (!LocateSource(*this, ExtensionOf(eNCFormat), &source, status)) return false;
  if (source.GetLen() < kExtensionLength) return Fail(status, kFailed);
  const KelString target = source.Left(source.GetLen() - kExtensionLength) + "pc2";
  const KelString folder = FolderOf(source);
  const KelString baseName = BaseNameOf(target);
  if (!target.IsValid() || !folder.IsValid() || !baseName.IsValid()) {
    return Fail(status, KelStatus::eFailure);
  }
  if (!zuCacheFileInterface::convertToPc2(target, folder, baseName, channelIndex, ticks)) {
    return Fail(status, kFailed);
  }
  ClearStatus(status);
  return true;
}

}  // namespace kelsdk
