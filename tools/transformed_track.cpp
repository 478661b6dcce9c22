#include "tools/transformed_track.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "tools/tool_error.h"

namespace kelcache {
namespace {

// What elements of one channel go through.
class Map {
 public:
  Map(const Transform& transform, ERole role)
      : rows_(transform.MatrixFor(role)), move_(transform.TranslationFor(role)) {
    for (std::size_t row = 0; row < 3; ++row) {
      if (std::ranges::count(rows_[row], 0) != 2) continue;
      only_[row] = static_cast<std::size_t>(
          std::ranges::find_if(rows_[row], [](double value) { return value != 0; }) -
          rows_[row].begin());
      ++plainRows_;
    }
  }

  /// False where finite values came to one that the type does not hold.
  template <typename Value>
  bool Points(const Value* from, Value* to, std::size_t count) const {
    return plainRows_ == 3 ? PlainPoints(from, to, count) : AnyPoints(from, to, count);
  }

  /// The box around the turned one. A box that is empty or has no bounds stays as it is.
  template <typename Value>
  bool Boxes(const Value* from, Value* to, std::size_t count) const {
    bool fits = true;
    for (std::size_t i = 0; i < count; ++i, from += 6, to += 6) {
      std::copy_n(from, 6, to);
      bool isBox = true;
      for (std::size_t k = 0; k < 3; ++k) isBox = isBox && from[k] <= from[k + 3];
      for (std::size_t k = 0; k < 6; ++k) isBox = isBox && std::isfinite(from[k]);
      if (isBox) fits = Box(from, to) && fits;
    }
    return fits;
  }

 private:
  // Each coordinate comes from one other: what is not finite stays where it is.
  template <typename Value>
  bool PlainPoints(const Value* from, Value* to, std::size_t count) const {
    const double factors[] = {rows_[0][only_[0]], rows_[1][only_[1]], rows_[2][only_[2]]};
    bool isOutside = false;
    for (std::size_t i = 0; i < count; ++i, from += 3, to += 3) {
      for (std::size_t k = 0; k < 3; ++k) {
        const Value value = from[only_[k]];
        to[k] = NearestValue<Value>(double(value) * factors[k] + move_[k]);
        isOutside |= value - value == 0 && to[k] - to[k] != 0;
      }
    }
    return !isOutside;
  }

  template <typename Value>
  bool AnyPoints(const Value* from, Value* to, std::size_t count) const {
    bool isOutside = false;
    for (std::size_t i = 0; i < count; ++i, from += 3, to += 3) {
      const double x = double(from[0]);
      const double y = double(from[1]);
      const double z = double(from[2]);
      const bool isFinite = (x - x) + (y - y) + (z - z) == 0;
      for (std::size_t k = 0; k < 3; ++k) {
        to[k] = NearestValue<Value>(rows_[k][0] * x + rows_[k][1] * y + rows_[k][2] * z + move_[k]);
        isOutside |= isFinite && to[k] - to[k] != 0;
      }
    }
    return !isOutside;
  }

  template <typename Value>
  bool Box(const Value* from, Value* to) const {
    constexpr unsigned int kCorners = 8;
    std::fill_n(to, 3, std::numeric_limits<Value>::infinity());
    std::fill_n(to + 3, 3, -std::numeric_limits<Value>::infinity());
    bool fits = true;
    for (unsigned int corner = 0; corner < kCorners; ++corner) {
      Value place[3];
      Value turned[3];
      for (unsigned int k = 0; k < 3; ++k) place[k] = from[(corner >> k & 1) != 0 ? k + 3 : k];
      fits = Points(place, turned, 1) && fits;
      for (unsigned int k = 0; k < 3; ++k) {
        to[k] = std::min(to[k], turned[k]);
        to[k + 3] = std::max(to[k + 3], turned[k]);
      }
    }
    return fits;
  }

  Transform::Rows rows_;
  Vector move_;
  std::size_t only_[3] = {};  // of a row with one factor, which
  unsigned int plainRows_ = 0;
};

class TransformedTrack : public Track {
 public:
  TransformedTrack(std::unique_ptr<Track> track, const Transform& transform, ERole role)
      : Track(track->source(), track->channel()),
        track_(std::move(track)),
        map_(transform, role),
        role_(role) {}

  std::uint64_t Count() const override { return track_->Count(); }
  Moment At(std::uint64_t index) override { return track_->At(index); }
  bool Descends() const override { return track_->Descends(); }
  unsigned int Stride() const override { return track_->Stride(); }
  double DeclaredFrames() const override { return track_->DeclaredFrames(); }
  unsigned int ElementsAt(const Moment& moment) override { return track_->ElementsAt(moment); }

  Array Fetch(const Moment& moment) override {
    Array array = track_->Fetch(moment);
    void* const to = room_.For(array);
    const bool fits =
        array.type == ValueType::eFloat32 ? Change<float>(array, to) : Change<double>(array, to);
    if (!fits) {
      FailAt(source_.summary(), channel_, moment,
             "a transformed value leaves the range of its type");
    }
    array.values = to;
    return array;
  }

  // Equal arrays stay equal where they are transformed alike.
  std::optional<SampleRun> RunAt(const Moment& moment) override {
    auto run = track_->RunAt(moment);
    if (run) run->variant = static_cast<unsigned int>(role_);
    return run;
  }

 private:
  template <typename Value>
  bool Change(const Array& array, void* to) const {
    const auto* const from = static_cast<const Value*>(array.values);
    auto* const changed = static_cast<Value*>(to);
    return role_ == ERole::eBoxes ? map_.Boxes(from, changed, array.elements)
                                  : map_.Points(from, changed, array.elements);
  }

  std::unique_ptr<Track> track_;
  Map map_;
  ERole role_;
  Room room_;
};

}  // namespace

std::unique_ptr<Track> Transformed(std::unique_ptr<Track> track, const Transform& transform) {
  const ERole role = transform.RoleOf(track->source().summary(), track->channel());
  if (role == ERole::eNone) return track;
  return std::make_unique<TransformedTrack>(std::move(track), transform, role);
}

}  // namespace kelcache
