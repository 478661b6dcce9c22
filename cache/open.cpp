#include "cache/checks.h"
#include "cache/paths.h"
#include "cache/ticks.h"
#include "host/KelFileUtils.h"

namespace kelsdk {
namespace {

constexpr unsigned int kValuesPerPoint = 3;
constexpr char kCouldNotBeCreated[] = "Cache file could not be created: %s%s";

bool FailToCreate(KelStatus* status, const char* folder, const char* baseName) {
  if (status != nullptr) {
    status->SetCode(KelStatus::eFailure, kCouldNotBeCreated, folder, baseName);
  }
  return false;
}

// Whether the rate serves: NC writing also needs its ticks.
bool RateServes(double samplingFrameRate, KelCache::EFileFormat format, bool write, int* ticks) {
  const bool needsTicks = write && format == KelCache::eNCFormat;
  return needsTicks ? TicksPerFrame(samplingFrameRate, ticks) : IsRate(samplingFrameRate);
}

// Replaces `absolute` by the resolved relative name when it names no file of the format and that
// one does. Fails with the names looked for when neither does.
bool LocateForRead(const CacheNames& names, const char* extension, KelString* absolute,
                   KelStatus* status) {
  const KelString first = CandidateOf(*absolute, extension);
  if (!first.IsValid()) return Fail(status, KelStatus::eFailure);
  if (KelFileUtils::Exist(first)) return true;
  KelString resolved = names.Resolved();
  const KelString second = CandidateOf(resolved, extension);
  if (!second.IsValid()) return Fail(status, KelStatus::eFailure);
  if (KelFileUtils::Exist(second)) {
    *absolute = std::move(resolved);
    return true;
  }
  if (status != nullptr) {
    status->SetCode(KelStatus::eFailure, "Cache file not found: %s, %s", first.Buffer(),
                    second.Buffer());
  }
  return false;
}

// Gives the scratch buffer room for so many points; for none there is no buffer. The old one goes
// first: both together may be more than there is memory for.
bool RenewScratch(KelCache_internal* state, unsigned int pointCount, unsigned int bytes) {
  KelFree(state->pc2Buffer);
  state->pc2Buffer = nullptr;
  state->pc2BufferCount = 0;
  if (pointCount == 0) return true;
  state->pc2Buffer = static_cast<float*>(KelMalloc(bytes));
  if (state->pc2Buffer == nullptr) return false;
  state->pc2BufferCount = pointCount * kValuesPerPoint;
  return true;
}

// Begins to write an NC cache with its first channel.
bool BeginNC(zuCacheFileInterface* cache, const char* folder, const char* baseName,
             KelCache::ENCFileCount fileCount, KelCache::ENCBinaryFormat binaryFormat, int ticks,
             const char* channelName, KelCache::ENCDataType dataType, const char* interpretation) {
  const auto layout = fileCount == KelCache::eNCFilePerFrame ? zuCacheFileInterface::eFilePerFrame
                                                             : zuCacheFileInterface::eSingleFile;
  const char* tag = binaryFormat == KelCache::eNCBinaryC ? "ncc" : "ncx";
  if (!cache->initFileWrite(folder, baseName, layout, tag, ticks)) return false;
  unsigned int channelIndex = 0;
  return cache->addChannel(channelName != nullptr ? channelName : baseName,
                           interpretation != nullptr ? interpretation : "Points",
                           static_cast<zuCacheData::zuCacheDataType>(dataType), channelIndex);
}

}  // namespace

bool KelCache::OpenFile(EOpenFlag flag, ENCFileCount fileCount, double samplingFrameRate,
                        const char* channelName, const char* interpretation,
                        unsigned int sampleCount, unsigned int pointCount, double frameStartOffset,
                        KelStatus* status, ENCDataType dataType, ENCBinaryFormat binaryFormat) {
  const EFileFormat format = GetCacheFileFormat();
  ClearStatus(status);
  if (format == eUnknownFormat) return Fail(status, kInvalidFormat);
  if (internalState == nullptr) return Fail(status, KelStatus::eFailure);
  if (IsOpenFor(internalState, format)) return internalState->openFlag == flag;
  internalState->refusal[0] = 0;
  const bool write = flag != eOpenForRead;
  int ticks = 0;
  if (!RateServes(samplingFrameRate, format, write, &ticks)) {
    return Fail(status, kInvalidSamplingRate);
  }

  const CacheNames names(*this);
  KelString absolute = names.absolute;
  if (!names.AreValid() || !absolute.IsValid()) return Fail(status, KelStatus::eFailure);
  if (!write && !LocateForRead(names, ExtensionOf(format), &absolute, status)) return false;
  const KelString folder = FolderOf(absolute);
  const KelString baseName = BaseNameOf(absolute);
  if (!folder.IsValid() || !baseName.IsValid()) return Fail(status, KelStatus::eFailure);

  bool opened = false;
  switch (format) {
    case eUnknownFormat: break;
    case ePC2Format:
      opened = OpenPC2(flag, absolute, folder, baseName, sampleCount, pointCount, frameStartOffset,
                       status);
      break;
    case eNCFormat:
      if (!write) {
        opened = OpenNCForRead(baseName, folder, status);
        break;
      }
      internalState->ncCache = NewBackEnd<zuCacheFileInterface>();
      if (internalState->ncCache == nullptr) return Fail(status, KelStatus::eFailure);
      opened = BeginNC(internalState->ncCache, folder, baseName, fileCount, binaryFormat, ticks,
                       channelName, dataType, interpretation);
      if (!opened) {
        FailToCreate(status, folder, baseName);
        KeepWords(internalState, internalState->ncCache);
        DestroyBackEnd(internalState->ncCache);
      }
      break;
    case eAlembicFormat:
      if (write) return Fail(status, "Alembic Cache file write is not supported");
      opened = OpenAlembic(absolute, status);
      break;
  }
  if (opened) internalState->openFlag = flag;
  return opened;
}

bool KelCache::OpenNCForRead(const char* baseName, const char* folder, KelStatus* status) {
  zuCacheFileInterface*& cache = internalState->ncCache;
  cache = NewBackEnd<zuCacheFileInterface>();
  if (cache == nullptr) return Fail(status, KelStatus::eFailure);
  if (!cache->initFileRead(baseName, folder)) {
    KeepWords(internalState, cache);
    DestroyBackEnd(cache);
    return false;
  }
  cache->setOptimizeMultiChannelRead(true);
  return true;
}

bool KelCache::OpenAlembic(const char* absoluteName, KelStatus* status) {
  AlembicInterface*& cache = internalState->alembicCache;
  cache = NewBackEnd<AlembicInterface>(true);
  if (cache == nullptr) return Fail(status, KelStatus::eFailure);
  if (!cache->Open(absoluteName, 1)) {
    KeepWords(internalState, cache);
    DestroyBackEnd(cache);
  }
  return cache != nullptr;
}

bool KelCache::OpenPC2(EOpenFlag flag, const char* absoluteName, const char* folder,
                       const char* baseName, unsigned int sampleCount, unsigned int pointCount,
                       double frameStartOffset, KelStatus* status) {
  const bool write = flag != eOpenForRead;
  unsigned int scratchBytes = 0;
  if (!SizeOf(pointCount, kValuesPerPoint, sizeof(float), &scratchBytes)) {
    return write ? FailToCreate(status, folder, baseName)
                 : Fail(status, KelStatus::eInvalidParameter);
  }
  zuPointCache2IO*& cache = internalState->pc2Cache;
  cache = NewBackEnd<zuPointCache2IO>();
  bool opened = false;
  if (cache == nullptr) {
    Fail(status, KelStatus::eFailure);
  } else if (write) {
    opened = cache->initialize(absoluteName, zuPointCache2IO::writeMode) &&
             cache->beginWriteData(static_cast<int>(pointCount), static_cast<int>(sampleCount),
                                   static_cast<float>(frameStartOffset), 1.0F);
    if (!opened) FailToCreate(status, folder, baseName);
  } else if (cache->initialize(absoluteName, zuPointCache2IO::readMode)) {
    opened = cache->version == 1 || Fail(status, "Unsupported file version");
  }
  if (!opened) {
    KeepWords(internalState, cache);
    DestroyBackEnd(cache);
    return false;
  }
  if (RenewScratch(internalState, pointCount, scratchBytes)) return true;
  if (write) cache->discardWrite();
  DestroyBackEnd(cache);
  return Fail(status, KelStatus::eFailure);
}

bool KelCache::OpenFileForRead(KelStatus* status) {
  return OpenFile(eOpenForRead, eNCSingleFile, 1.0, nullptr, nullptr, 0, 0, 0.0, status,
                  eNCDoubleVectorArray, eNCBinaryX);
}

bool KelCache::OpenFileForWrite(double frameStartOffset, double samplingFrameRate,
                                unsigned int sampleCount, unsigned int pointCount,
                                KelStatus* status) {
  return OpenFile(eOpenForWrite, eNCSingleFile, samplingFrameRate, nullptr, nullptr, sampleCount,
                  pointCount, frameStartOffset, status, eNCDoubleVectorArray, eNCBinaryX);
}

bool KelCache::OpenFileForWrite(ENCFileCount fileCount, double samplingFrameRate,
                                const char* channelName, ENCBinaryFormat binaryFormat,
                                ENCDataType dataType, const char* interpretation,
                                KelStatus* status) {
  return OpenFile(eOpenForWrite, fileCount, samplingFrameRate, channelName, interpretation, 0, 0,
                  0.0, status, dataType, binaryFormat);
}

bool KelCache::IsOpen(KelStatus* status) const {
  const EFileFormat format = GetCacheFileFormat();
  ClearStatus(status);
  if (IsOpenFor(internalState, format)) return true;
  return Fail(status, kInvalidFormat);
}

bool KelCache::CloseFile(KelStatus* status) {
  ClearStatus(status);
  if (internalState == nullptr) return true;
  KelCache_internal& state = *internalState;
  state.refusal[0] = 0;
  switch (GetCacheFileFormat()) {
    case eUnknownFormat: break;
    case ePC2Format:
      if (state.openFlag == eOpenForWrite && state.pc2Cache != nullptr &&
          !state.pc2Cache->endWriteData()) {
        KeepWords(&state, state.pc2Cache);
      }
      DestroyBackEnd(state.pc2Cache);
      break;
    case eNCFormat:
      state.beginWriteAtCalled = false;
      if (state.openFlag == eOpenForWrite && state.ncCache != nullptr &&
          !state.ncCache->endFileWrite()) {
        KeepWords(&state, state.ncCache);
      }
      DestroyBackEnd(state.ncCache);
      break;
    case eAlembicFormat:
      state.beginWriteAtCalled = false;
      DestroyBackEnd(state.alembicCache);
      break;
  }
  ClearStatus(status);
  return true;
}

const char* KelCache::GetErrorString() const {
  if (internalState == nullptr) return "";
  switch (GetCacheFileFormat()) {
    case eUnknownFormat: break;
    case ePC2Format:
      if (internalState->pc2Cache != nullptr) return WordsOf(*internalState->pc2Cache);
      break;
    case eNCFormat:
      if (internalState->ncCache != nullptr) return WordsOf(*internalState->ncCache);
      break;
    case eAlembicFormat:
      if (internalState->alembicCache != nullptr) return WordsOf(*internalState->alembicCache);
      break;
  }
  return internalState->refusal;
}

}  // namespace kelsdk
