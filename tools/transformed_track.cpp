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
    constexpr std::size_t kBlock = 512;  // points that the nearest memory keeps
    bool fits = true;
    for (std::size_t done = 0; done < count; done += kBlock) {
      const Value* const first = from + done * 3;
      Value* const changed = to + done * 3;
      const std::size_t points = std::min(kBlock, count - done);
      if (plainRows_ == 3) {
        PlainPoints(first, changed, points);
      } else {
        AnyPoints(first, changed, points);
      }
      if (AnyIsNotFinite(changed, points * 3)) fits = SparePoints(first, changed, points) && fits;
    }
    return fits;
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
  // Each coordinate comes from one other.
  template <typename Value>
  void PlainPoints(const Value* from, Value* to, std::size_t count) const {
    const std::size_t a = only_[0];
    const std::size_t b = only_[1];
    const std::size_t c = only_[2];
    const Vector by = {rows_[0][a], rows_[1][b], rows_[2][c]};
    const Vector move = move_;
    for (std::size_t i = 0; i < count * 3; i += 3) {
      to[i] = NearestValue<Value>(double(from[i + a]) * by[0] + move[0]);
      to[i + 1] = NearestValue<Value>(double(from[i + b]) * by[1] + move[1]);
      to[i + 2] = NearestValue<Value>(double(from[i + c]) * by[2] + move[2]);
    }
  }

  template <typename Value>
  void AnyPoints(const Value* from, Value* to, std::size_t count) const {
    const auto [u, v, w] = rows_;
    const Vector move = move_;
    for (std::size_t i = 0; i < count * 3; i += 3) {
      const auto x = double(from[i]);
      const auto y = double(from[i + 1]);
      const auto z = double(from[i + 2]);
      to[i] = NearestValue<Value>(u[0] * x + u[1] * y + u[2] * z + move[0]);
      to[i + 1] = NearestValue<Value>(v[0] * x + v[1] * y + v[2] * z + move[1]);
      to[i + 2] = NearestValue<Value>(w[0] * x + w[1] * y + w[2] * z + move[2]);
    }
  }

  // The same where values are not finite, which spoil only those that they have a part in.
  template <typename Value>
  bool SparePoints(const Value* from, Value* to, std::size_t count) const {
    bool fits = true;
    for (std::size_t i = 0; i < count * 3; ++i) {
      const std::size_t k = i % 3;
      double sum = 0;
      bool isFinite = true;
      for (std::size_t column = 0; column < 3; ++column) {
        const Value value = from[i - k + column];
        if (rows_[k][column] == 0) continue;
        sum += rows_[k][column] * double(value);
        isFinite = isFinite && std::isfinite(value);
      }
      to[i] = NearestValue<Value>(sum + move_[k]);
      fits = fits && (!isFinite || std::isfinite(to[i]));
    }
    return fits;
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
