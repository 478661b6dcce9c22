#include "backends/AlembicInterface.h"

#include <algorithm>
#include <memory>
#include <new>

#include "backends/alembic/archive.h"
#include "backends/alembic/channels.h"
#include "backends/alembic/hdf5_archive.h"
#include "backends/alembic/report.h"
#include "backends/io/error.h"
#include "backends/io/guard.h"

using kelsdk::KelString;
using kelsdk::KelTime;
using kelsdk::alembic::ChannelList;
using kelsdk::alembic::EPlainType;
using kelsdk::alembic::Property;
using kelsdk::alembic::TimeSampling;
using kelsdk::io::Error;
using kelsdk::io::Guarded;
using kelsdk::io::SetFromException;

struct AlembicInterface::Impl {
  std::unique_ptr<ChannelList> channels;
  Error error;

  bool Has(unsigned int channel) {
    if (channels == nullptr) return error.Set(Error::eRefused, "no archive is open");
    if (channel < channels->Count()) return true;
    return error.Set(Error::eRefused, "channel %u, the archive has %u", channel, channels->Count());
  }

  bool Has(unsigned int channel, unsigned int sample) {
    if (!Has(channel)) return false;
    const unsigned int samples = channels->SampleCount(channel);
    return sample < samples || error.Set(Error::eRefused, "sample %u of %u", sample, samples);
  }
};

namespace {

// False, with the reason, when there was no memory for the text.
bool Assign(KelString& to, const char* text, Error& error) {
  to = text;
  return to.IsValid() || error.Set(Error::eNoMemory, "not enough memory");
}

AlembicChannelInfo::ESampling SamplingOf(TimeSampling::EKind kind) {
  switch (kind) {
    case TimeSampling::eCyclic: return AlembicChannelInfo::eCyclic;
    case TimeSampling::eAcyclic: return AlembicChannelInfo::eAcyclic;
    case TimeSampling::eUniform:
    case TimeSampling::eInvalid: break;
  }
  return AlembicChannelInfo::eUniform;
}

// Never asked of strings, which are no channels.
AlembicChannelInfo::EValue ValueOf(EPlainType type) {
  if (type < EPlainType::eFloat16) return static_cast<AlembicChannelInfo::EValue>(type);
  return type == EPlainType::eFloat64 ? AlembicChannelInfo::eFloat64 : AlembicChannelInfo::eFloat32;
}
static_assert(AlembicChannelInfo::eInt64 == static_cast<int>(EPlainType::eInt64));

bool FillInfo(ChannelList& channels, unsigned int channel, AlembicChannelInfo& info, Error& error) {
  const Property& property = channels.PropertyOf(channel);
  const TimeSampling& sampling = channels.SamplingOf(channel);
  const std::string& metadata = channels.archive().hierarchy().metadata[property.metadata];
  const std::string interpretation(kelsdk::alembic::MetadataValue(metadata, "interpretation"));
  if (!Assign(info.name, channels.Name(channel).c_str(), error) ||
      !Assign(info.type, kelsdk::alembic::TypeText(property).c_str(), error) ||
      !Assign(info.interpretation, interpretation.c_str(), error)) {
    return false;
  }
  info.sampleCount = channels.SampleCount(channel);
  if (!channels.BufferLength(channel, info.elementCount, error)) info.elementCount = 0;
  info.start = channels.Start(channel);
  info.end = channels.End(channel);
  info.sampling = SamplingOf(sampling.kind);
  info.period = sampling.period;
  info.constant = property.IsConstant();
  info.value = ValueOf(property.type);
  return true;
}

}  // namespace

AlembicInterface::AlembicInterface(bool /*readOnly*/) : impl(new (std::nothrow) Impl) {}

AlembicInterface::~AlembicInterface() {
  delete impl;
}

bool AlembicInterface::Open(const char* fileName, int /*flags*/) {
  if (impl == nullptr) return false;
  return Guarded(impl->error, false, [&] {
    impl->channels.reset();
    if (fileName == nullptr) return impl->error.Set(Error::eRefused, "no file name");
    auto archive = kelsdk::alembic::OpenArchive(fileName, impl->error);
    if (archive == nullptr) return false;
    impl->channels = std::make_unique<ChannelList>(std::move(archive));
    return true;
  });
}

int AlembicInterface::GetNumChannels() const {
  if (impl == nullptr || impl->channels == nullptr) return 0;
  return static_cast<int>(impl->channels->Count());
}

bool AlembicInterface::GetChannelIdFromName(const char* channelName, unsigned int& channelId) {
  if (impl == nullptr) return false;
  return Guarded(impl->error, false, [&] {
    if (impl->channels == nullptr || channelName == nullptr)
      return impl->error.Set(Error::eRefused, "no archive is open, or no name was given");
    if (impl->channels->Find(channelName, channelId)) return true;
    return impl->error.Set(Error::eNotFound, "no channel is called \"%s\"", channelName);
  });
}

bool AlembicInterface::GetChannelName(unsigned int channelIndex, KelString& channelName) {
  if (impl == nullptr || !impl->Has(channelIndex)) return false;
  return Guarded(impl->error, false, [&] {
    return Assign(channelName, impl->channels->Name(channelIndex).c_str(), impl->error);
  });
}

unsigned int AlembicInterface::GetChannelNumSamples(unsigned int channelIndex) {
  if (impl == nullptr || !impl->Has(channelIndex)) return 0;
  return impl->channels->SampleCount(channelIndex);
}

bool AlembicInterface::GetChannelStartEnd(unsigned int channelIndex, KelTime& start, KelTime& end) {
  start = KelTime();
  end = KelTime();
  if (impl == nullptr || !impl->Has(channelIndex)) return false;
  start = KelTime::FromSeconds(impl->channels->Start(channelIndex));
  end = KelTime::FromSeconds(impl->channels->End(channelIndex));
  return true;
}

unsigned int AlembicInterface::GetChannelTypeSize(unsigned int channelIndex) {
  if (impl == nullptr || !impl->Has(channelIndex)) return 0;
  return static_cast<unsigned int>(impl->channels->PropertyOf(channelIndex).ElementSize());
}

unsigned int AlembicInterface::GetChannelDataLength(unsigned int channelIndex) {
  if (impl == nullptr || !impl->Has(channelIndex)) return 0;
  return impl->channels->PropertyOf(channelIndex).extent;
}

unsigned int AlembicInterface::GetChannelBufferLength(unsigned int channelIndex) {
  if (impl == nullptr || !impl->Has(channelIndex)) return 0;
  return Guarded(impl->error, 0u, [&] {
    std::uint32_t elements = 0;
    return impl->channels->BufferLength(channelIndex, elements, impl->error) ? elements : 0u;
  });
}

bool AlembicInterface::GetChannelTypeIsFloat(unsigned int channelIndex) {
  if (impl == nullptr || !impl->Has(channelIndex)) return false;
  return impl->channels->PropertyOf(channelIndex).type == kelsdk::alembic::EPlainType::eFloat32;
}

bool AlembicInterface::GetChannelBuffer(unsigned int channelIndex, float* buffer,
                                        unsigned int count, const KelTime& time) try {
  if (impl == nullptr || !impl->Has(channelIndex)) return false;
  if (buffer == nullptr && count != 0)
    return impl->error.Set(Error::eRefused, "no buffer for %u elements", count);
  return impl->channels->Read(channelIndex, time.GetSeconds(), buffer, count, impl->error);
} catch (...) {
  return SetFromException(impl->error);
}

const char* AlembicInterface::GetErrorString() const {
  return impl != nullptr ? impl->error.text() : "not enough memory";
}

bool AlembicInterface::GetChannelInfo(unsigned int channelIndex, AlembicChannelInfo& info) {
  if (impl == nullptr || !impl->Has(channelIndex)) return false;
  return Guarded(impl->error, false,
                 [&] { return FillInfo(*impl->channels, channelIndex, info, impl->error); });
}

bool AlembicInterface::GetSampleTime(unsigned int channelIndex, unsigned int sampleIndex,
                                     double& seconds) {
  if (impl == nullptr || !impl->Has(channelIndex, sampleIndex)) return false;
  seconds = impl->channels->SamplingOf(channelIndex).TimeOf(sampleIndex);
  return true;
}

bool AlembicInterface::GetSampleAtTime(unsigned int channelIndex, const KelTime& time,
                                       unsigned int& sampleIndex) {
  if (impl == nullptr || !impl->Has(channelIndex)) return false;
  const ChannelList& channels = *impl->channels;
  sampleIndex = channels.SamplingOf(channelIndex)
                    .FloorSample(time.GetSeconds(), channels.SampleCount(channelIndex));
  return true;
}

bool AlembicInterface::GetSampleLength(unsigned int channelIndex, unsigned int sampleIndex,
                                       unsigned int& elementCount) {
  if (impl == nullptr || !impl->Has(channelIndex, sampleIndex)) return false;
  return Guarded(impl->error, false, [&] {
    return impl->channels->SampleLength(channelIndex, sampleIndex, elementCount, impl->error);
  });
}

bool AlembicInterface::ReadSample(unsigned int channelIndex, unsigned int sampleIndex, void* values,
                                  unsigned int& elementCount) {
  if (impl == nullptr || !impl->Has(channelIndex, sampleIndex)) return false;
  if (values == nullptr && elementCount != 0) {
    return impl->error.Set(Error::eRefused, "no room for %u elements", elementCount);
  }
  return Guarded(impl->error, false, [&] {
    return impl->channels->ReadSample(channelIndex, sampleIndex, values, elementCount, impl->error);
  });
}

bool AlembicInterface::GetSampleRun(unsigned int channelIndex, unsigned int sampleIndex,
                                    unsigned int& first, unsigned int& last,
                                    unsigned long long& identity) {
  if (impl == nullptr || !impl->Has(channelIndex, sampleIndex)) return false;
  return Guarded(impl->error, false, [&] {
    std::uint64_t place = 0;
    ChannelList& channels = *impl->channels;
    if (!channels.SampleIdentity(channelIndex, sampleIndex, place, impl->error)) return false;
    channels.PropertyOf(channelIndex).StoredRun(sampleIndex, first, last);
    // Of more samples than there are times for, the last ones are none of the channel's.
    last = std::min(last, channels.SampleCount(channelIndex) - 1);
    identity = place;
    return true;
  });
}

const char* AlembicInterface::Containers() {
  return kelsdk::alembic::Containers();
}

unsigned long long AlembicInterface::GetProblemCount() const {
  if (impl == nullptr || impl->channels == nullptr) return 0;
  const kelsdk::alembic::Hierarchy& hierarchy = impl->channels->archive().hierarchy();
  const auto damagedTimes =
      std::count_if(hierarchy.timeSamplings.begin(), hierarchy.timeSamplings.end(),
                    [](const TimeSampling& one) { return one.kind == TimeSampling::eInvalid; });
  return hierarchy.problemCount + static_cast<unsigned long long>(damagedTimes);
}

bool AlembicInterface::ListTree(ReportFunction report, void* context) {
  if (impl == nullptr) return false;
  return Guarded(impl->error, false, [&] {
    if (impl->channels == nullptr) return impl->error.Set(Error::eRefused, "no archive is open");
    kelsdk::alembic::ListTree(impl->channels->archive().hierarchy(), {report, context});
    return true;
  });
}

bool AlembicInterface::Verify(ReportFunction report, void* context, ProceedFunction proceed) {
  if (impl == nullptr) return false;
  return Guarded(impl->error, false, [&] {
    if (impl->channels == nullptr) return impl->error.Set(Error::eRefused, "no archive is open");
    if (kelsdk::alembic::Verify(impl->channels->archive(), {report, context, proceed})) return true;
    return impl->error.Set(Error::eDamaged, "the archive is damaged; each problem was reported");
  });
}
