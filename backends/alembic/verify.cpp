#include <set>
#include <tuple>

#include "backends/alembic/report.h"
#include "backends/alembic/samples.h"

namespace kelsdk::alembic {
namespace {

class Verifier {
 public:
  Verifier(Archive& archive, const io::Report& report)
      : archive_(archive), hierarchy_(archive.hierarchy()), report_(report) {}

  bool Run();

 private:
  void CheckHierarchy();
  void CheckTimes(PropertyId id);
  void CheckSamples(PropertyId id);
  bool Proceed(PropertyId id);
  bool CheckSample(PropertyId id, std::uint64_t stored, io::Error& error);
  bool CheckNumbers(PropertyId id, std::uint64_t stored, io::Error& error);
  bool CheckText(PropertyId id, std::uint64_t stored, std::uint64_t valueBytes,
                 std::uint64_t strings, io::Error& error);
  void Add(const std::string& line);

  /// The bytes of a sample by place, and as what they were read: type and number of strings.
  using Contents = std::tuple<std::uint64_t, EPlainType, std::uint64_t>;

  Archive& archive_;
  const Hierarchy& hierarchy_;
  const io::Report& report_;
  std::set<Contents> read_;
  std::uint64_t bytesRead_ = 0;
  std::vector<std::uint8_t> scratch_;
  bool sound_ = true;
  bool ended_ = false;
};

void Verifier::Add(const std::string& line) {
  sound_ = false;
  report_.Say("%s", line.c_str());
}

void Verifier::CheckHierarchy() {
  for (const std::string& problem : hierarchy_.problems) Add(problem);
  if (hierarchy_.problemCount > hierarchy_.problems.size()) {
    Add(std::to_string(hierarchy_.problemCount - hierarchy_.problems.size()) +
        " more of this kind");
  }
  for (std::size_t i = 0; i < hierarchy_.timeSamplings.size(); ++i) {
    if (hierarchy_.timeSamplings[i].kind == TimeSampling::eInvalid)
      Add("time sampling " + std::to_string(i) + ": no such times can be");
  }
}

void Verifier::CheckTimes(PropertyId id) {
  const Property& property = hierarchy_.properties[id];
  const TimeSampling& sampling = hierarchy_.timeSamplings[property.timeSampling];
  const std::uint32_t timed = sampling.TimedSamples(property.sampleCount);
  if (timed == property.sampleCount) return;
  Add(hierarchy_.PropertyPath(id) + ": " + std::to_string(property.sampleCount) +
      " samples, times for " + std::to_string(timed));
}

bool Verifier::CheckNumbers(PropertyId id, std::uint64_t stored, io::Error& error) {
  std::uint64_t identity = 0;
  if (!archive_.SampleIdentity(id, stored, identity, error)) return false;
  // Whatever their type: the bytes can be read or they cannot.
  if (!read_.insert({identity, EPlainType::eUint8, 0}).second) return true;
  std::uint64_t fileBytes = 0;
  if (!archive_.FileBytes(id, stored, fileBytes, error)) return false;
  bytesRead_ += fileBytes;
  if (bytesRead_ > archive_.FileSize())
    return error.Set(io::Error::eDamaged, "samples overlap: all together outgrow the file");
  return archive_.ReadThrough(id, stored, scratch_, error);
}

bool Verifier::CheckText(PropertyId id, std::uint64_t stored, std::uint64_t valueBytes,
                         std::uint64_t strings, io::Error& error) {
  const EPlainType type = hierarchy_.properties[id].type;
  std::uint64_t identity = 0;
  if (!archive_.SampleIdentity(id, stored, identity, error)) return false;
  if (!read_.insert({identity, type, strings}).second) return true;
  const auto size = static_cast<std::size_t>(valueBytes);
  if (scratch_.size() < size) scratch_.resize(size);
  std::uint64_t read = 0;
  return archive_.ReadValues(id, stored, scratch_.data(), size, read, error) &&
         CheckStrings(type, scratch_.data(), size, strings, error);
}

bool Verifier::CheckSample(PropertyId id, std::uint64_t stored, io::Error& error) {
  const Property& property = hierarchy_.properties[id];
  std::uint64_t valueBytes = 0;
  if (!archive_.ValueBytes(id, stored, valueBytes, error)) return false;
  std::uint64_t elements = 1;
  if (property.kind == EPropertyKind::eArray) {
    Dimensions dimensions;
    if (!archive_.ReadDimensions(id, stored, dimensions, error) ||
        !CountElements(property, valueBytes, dimensions, elements, error)) {
      return false;
    }
  }
  if (IsNumeric(property.type)) return CheckNumbers(id, stored, error);
  return CheckText(id, stored, valueBytes, elements * property.extent, error);
}

bool Verifier::Proceed(PropertyId id) {
  if (!ended_ && !report_.Proceed(id, hierarchy_.properties.size())) {
    ended_ = true;
    Add("ended before all was read");
  }
  return !ended_;
}

void Verifier::CheckSamples(PropertyId id) {
  const Property& property = hierarchy_.properties[id];
  const std::uint64_t count = property.StoredCount();
  if (property.kind == EPropertyKind::eArray && IsNumeric(property.type)) {
    // Samples that are longer than the largest that is found are refused from then on.
    std::uint64_t ignoredBytes = 0;
    io::Error ignored;
    archive_.LargestSample(id, ignoredBytes, ignored);
  }
  for (std::uint64_t stored = 0; stored < count && Proceed(id); ++stored) {
    io::Error error;
    if (CheckSample(id, stored, error)) continue;
    Add(hierarchy_.PropertyPath(id) + ": stored sample " + std::to_string(stored) + " of " +
        std::to_string(count) + ": " + error.text());
    if (stored == 0 && !archive_.HasSampleList(id)) return;
  }
}

bool Verifier::Run() {
  CheckHierarchy();
  for (PropertyId id = 0; id < hierarchy_.properties.size(); ++id) {
    if (hierarchy_.properties[id].kind == EPropertyKind::eCompound) continue;
    CheckTimes(id);
    CheckSamples(id);
  }
  return sound_;
}

}  // namespace

bool Verify(Archive& archive, const io::Report& report) {
  return Verifier(archive, report).Run();
}

}  // namespace kelsdk::alembic
