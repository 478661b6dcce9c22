#include "tools/sequence_track.h"

#include <algorithm>
#include <cmath>

#include "tools/tool_error.h"

namespace kelcache {
namespace {

// Samples of one track that no other interrupts, counted in the order of their times.
struct Part {
  Track* track = nullptr;
  std::uint64_t first = 0;
  std::uint64_t end = 0;
  double firstTicks = 0;
  double lastTicks = 0;
};

Moment InOrder(Track& track, std::uint64_t place) {
  return track.At(track.Descends() ? track.Count() - 1 - place : place);
}

// The tick that a copy has the moment at.
double TicksOf(const Moment& moment) {
  return std::round(moment.ticks);
}

Part PartOf(Track& track, std::uint64_t first, std::uint64_t end) {
  Part part{&track, first, end};
  part.firstTicks = TicksOf(InOrder(track, first));
  part.lastTicks = TicksOf(InOrder(track, end - 1));
  return part;
}

// How many of a part's samples, in order, lie before a time, or at it too.
std::uint64_t EndBefore(const Part& part, double ticks, bool included) {
  std::uint64_t low = part.first;
  std::uint64_t high = part.end;
  while (low < high) {
    const std::uint64_t middle = low + (high - low) / 2;
    const double at = TicksOf(InOrder(*part.track, middle));
    const bool isBefore = included ? at <= ticks : at < ticks;
    (isBefore ? low : high) = isBefore ? middle + 1 : middle;
  }
  return low;
}

// A part without what lies in the range of another.
void AppendOutside(const Part& part, const Part& other, std::vector<Part>* parts) {
  const std::uint64_t end = EndBefore(part, other.firstTicks, false);
  const std::uint64_t next = EndBefore(part, other.lastTicks, true);
  if (end > part.first) parts->push_back(PartOf(*part.track, part.first, end));
  if (next < part.end) parts->push_back(PartOf(*part.track, next, part.end));
}

void ExpectApart(const std::vector<Part>& sorted) {
  for (std::size_t i = 1; i < sorted.size(); ++i) {
    const Part& before = sorted[i - 1];
    const Part& after = sorted[i];
    if (after.firstTicks > before.lastTicks) continue;
    const std::string channel = after.track->channel().name.value_or("");
    const double last = std::min(before.lastTicks, after.lastTicks);
    const Part& ending = before.lastTicks == last ? before : after;
    throw Failed(after.track->source().summary().file,
                 "overlaps " + before.track->source().summary().file +
                     (channel.empty() ? "" : " in channel " + channel) + " from " +
                     MomentText(InOrder(*after.track, after.first)) + " to " +
                     MomentText(InOrder(*ending.track, ending.end - 1)) +
                     "; --prefer first or last says whose samples count");
  }
}

void NoteGaps(const std::vector<Part>& sorted, const Say& note) {
  for (std::size_t i = 1; i < sorted.size(); ++i) {
    const Part& before = sorted[i - 1];
    const Part& after = sorted[i];
    const Moment last = InOrder(*before.track, before.end - 1);
    const Moment next = InOrder(*after.track, after.first);
    const CacheSummary& summary = before.track->source().summary();
    const double interval = before.track->channel().interval.value_or(0) * summary.rate.PerSecond();
    if (interval <= 0 || !last.frame || *next.frame - *last.frame < interval * 1.5) continue;
    note("no samples between " + MomentText(last) + " of " + before.track->source().summary().file +
         " and " + MomentText(next) + " of " + after.track->source().summary().file);
  }
}

class SequenceTrack : public Track {
 public:
  SequenceTrack(std::vector<std::unique_ptr<Track>> tracks, std::vector<Part> parts)
      : Track(tracks.front()->source(), tracks.front()->channel()),
        tracks_(std::move(tracks)),
        parts_(std::move(parts)) {
    for (const Part& part : parts_) {
      begins_.push_back(count_);
      count_ += part.end - part.first;
    }
  }

  std::uint64_t Count() const override { return count_; }
  bool Descends() const override { return false; }
  double DeclaredFrames() const override { return tracks_.front()->DeclaredFrames(); }

  Moment At(std::uint64_t index) override {
    const auto after = std::ranges::upper_bound(begins_, index);
    const auto number = static_cast<std::size_t>(after - begins_.begin()) - 1;
    const Part& part = parts_[number];
    return InOrder(*part.track, part.first + (index - begins_[number]));
  }
  Array Fetch(const Moment& moment) override { return PartAt(moment).track->Fetch(moment); }
  unsigned int ElementsAt(const Moment& moment) override {
    return PartAt(moment).track->ElementsAt(moment);
  }
  // Not beyond the part, where samples of another cache begin.
  std::optional<SampleRun> RunAt(const Moment& moment) override {
    const Part& part = PartAt(moment);
    auto run = part.track->RunAt(moment);
    if (run) run->last = std::min(run->last, static_cast<unsigned int>(part.end - 1));
    return run;
  }

 private:
  const Part& PartAt(const Moment& moment) const {
    const auto after = std::ranges::upper_bound(parts_, TicksOf(moment), {}, &Part::firstTicks);
    return *(after - 1);
  }

  std::vector<std::unique_ptr<Track>> tracks_;
  std::vector<Part> parts_;            // in the order of time
  std::vector<std::uint64_t> begins_;  // of parts, in samples
  std::uint64_t count_ = 0;
};

}  // namespace

std::unique_ptr<Track> MakeSequence(std::vector<std::unique_ptr<Track>> tracks, EPrefer prefer,
                                    const Say& note) {
  std::vector<Part> parts;
  std::vector<Part> ranges;  // of the caches that come before in preference
  const auto add = [&](Track& track) {
    if (track.Count() == 0) return;
    const Part whole = PartOf(track, 0, track.Count());
    std::vector<Part> left = {whole};
    for (const Part& range : ranges) {
      std::vector<Part> outside;
      for (const Part& part : left) AppendOutside(part, range, &outside);
      left = std::move(outside);
    }
    parts.insert(parts.end(), left.begin(), left.end());
    if (prefer != EPrefer::eNone) ranges.push_back(whole);
  };
  if (prefer == EPrefer::eLast) {
    for (auto track = tracks.rbegin(); track != tracks.rend(); ++track) add(**track);
  } else {
    for (const auto& track : tracks) add(*track);
  }
  std::ranges::sort(parts, {}, &Part::firstTicks);
  ExpectApart(parts);
  NoteGaps(parts, note);
  return std::make_unique<SequenceTrack>(std::move(tracks), std::move(parts));
}

}  // namespace kelcache
