#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <memory>

#include "tools/bounds.h"
#include "tools/jobs.h"
#include "tools/output.h"
#include "tools/source.h"
#include "tools/terminal_watch.h"
#include "tools/verbs.h"

namespace kelcache {
namespace {

using Clock = std::chrono::steady_clock;

struct PlayOptions {
  std::string file;
  std::string asName;
  std::string channel = "0";
  FrameRange range;
  kelsdk::KelFrameRate rate = {0, 0};
  unsigned int loop = 1;
  bool quiet = false;
  bool stats = false;
  bool json = false;
};

struct PlayResult {
  std::uint64_t frames = 0;
  std::uint64_t bytes = 0;
  unsigned int fewest = 0;  // elements
  unsigned int most = 0;
  Bounds bounds;
  double seconds = 0;  // spent in fetches alone
  Json stats = Json::array();
};

// Null for a component without a finite value.
Json FiniteJson(const std::vector<float>& values) {
  Json json = Json::array();
  for (const float value : values)
    json.push_back(std::isfinite(value) ? Json(value) : Json(nullptr));
  return json;
}

std::string FrameText(const Moment& moment) {
  return moment.frame ? RoundedText(*moment.frame) : RoundedText(moment.seconds) + "s";
}

class Player {
 public:
  Player(Source& source, const ChannelSummary& channel, const PlayOptions& options)
      : source_(source), channel_(channel), options_(options) {}

  void Visit(const Moment& moment) {
    // Of an archive the fetch gives as many as the largest sample has, of nothing it gives nothing.
    const unsigned int elements = source_.ElementsAt(channel_, moment);
    const float* values = nullptr;
    unsigned int length = 0;
    if (elements != 0 || source_.summary().pc2) {
      const auto begin = Clock::now();
      values = source_.FetchFloats(channel_, moment, &length);
      result_.seconds += std::chrono::duration<double>(Clock::now() - begin).count();
    }
    const Bounds frame = BoundsOf(values, elements, channel_.components);
    result_.bounds.Add(frame);
    if (options_.stats) TellStats(moment, values, elements, frame);
    result_.fewest = result_.frames == 0 ? elements : std::min(result_.fewest, elements);
    result_.most = std::max(result_.most, elements);
    result_.bytes += std::uint64_t{length} * sizeof(float);
    ++result_.frames;
  }

  const PlayResult& result() const { return result_; }

 private:
  void TellStats(const Moment& moment, const float* values, unsigned int elements,
                 const Bounds& frame) {
    const size_t length = size_t{elements} * channel_.components;
    std::optional<float> move;
    if (previous_.size() == length) {
      move = LargestMove(previous_.data(), values, elements, channel_.components);
    }
    previous_.assign(values, values + length);
    if (options_.json) {
      result_.stats.push_back({{"frame", OrNull(moment.frame)},
                               {"time", moment.seconds},
                               {"points", elements},
                               {"notFinite", frame.notFinite},
                               {"low", FiniteJson(frame.low)},
                               {"high", FiniteJson(frame.high)},
                               {"largestMove", OrNull(move)}});
      return;
    }
    std::printf("%s %u %s %s %s\n", FrameText(moment).c_str(), elements, frame.LowText().c_str(),
                frame.HighText().c_str(), move ? ShortestText(*move).c_str() : "-");
  }

  Source& source_;
  const ChannelSummary& channel_;
  const PlayOptions& options_;
  PlayResult result_;
  std::vector<float> previous_;
};

void PrintResult(const PlayOptions& options, const PlayResult& result, const Moment& first,
                 const Moment& last) {
  std::string points = std::to_string(result.most);
  if (result.fewest != result.most) points = std::to_string(result.fewest) + " to " + points;
  const double seconds = std::max(result.seconds, 1e-9);
  const std::string head = std::to_string(result.frames) + " frames (" + FrameText(first) + " to " +
                           FrameText(last) + "), " + points + " points";
  PrintLine(stdout, options.file + ": " + head);
  if (!options.quiet) {
    std::printf("bounding box %s to %s\n", result.bounds.LowText().c_str(),
                result.bounds.HighText().c_str());
    if (result.bounds.notFinite != 0) {
      std::printf("%llu values are not finite\n",
                  static_cast<unsigned long long>(result.bounds.notFinite));
    }
    std::printf("%llu bytes fetched in %.3g s: %.4g frames/s, %.3g GB/s\n",
                static_cast<unsigned long long>(result.bytes), seconds,
                double(result.frames) / seconds, double(result.bytes) / seconds / 1e9);
  }
}

Json ResultJson(const PlayResult& result, const Moment& first, const Moment& last, bool stats) {
  Json json = {{"firstFrame", OrNull(first.frame)},
               {"lastFrame", OrNull(last.frame)},
               {"start", first.seconds},
               {"end", last.seconds},
               {"fewestPoints", result.fewest},
               {"mostPoints", result.most},
               {"low", FiniteJson(result.bounds.low)},
               {"high", FiniteJson(result.bounds.high)},
               {"seconds", result.seconds},
               {"counts",
                {{"frames", result.frames},
                 {"bytes", result.bytes},
                 {"notFinite", result.bounds.notFinite}}}};
  if (stats) json["frames"] = result.stats;
  return json;
}

JobResult Play(const PlayOptions& options) {
  Source source(options.file, FormatOf(options.file, options.asName), options.rate,
                options.rate.IsValid());
  const ChannelSummary& channel = source.summary().FindChannel(options.channel);
  Moments moments = source.MomentsOf(channel);
  TerminalWatch watch(!options.quiet && !options.stats && !options.json);
  const bool missing = NoteWhatIsMissing(source, options.range, watch);
  const MomentRange range = moments.In(options.range);
  if (range.Count() == 0) {
    throw Failed(options.file, channel.samples == 0 ? "the channel has no samples"
                                                    : "no sample lies in the frames asked for");
  }
  if (options.stats && !options.json) std::printf("# frame points min max largest-move\n");
  Player player(source, channel, options);
  watch.Begin(std::uint64_t{options.loop} * range.Count(), options.file);
  for (unsigned int round = 0; round < options.loop; ++round) {
    for (std::uint64_t i = range.first; i < range.end; ++i) {
      player.Visit(moments.At(i));
      watch.Show(player.result().frames);
    }
  }
  watch.End();
  const Moment first = moments.At(range.first);
  const Moment last = moments.At(range.end - 1);
  JobResult result;
  result.status = missing ? eFound : eDone;
  result.notes = watch.notes();
  if (options.json) {
    result.report = ResultJson(player.result(), first, last, options.stats);
  } else {
    PrintResult(options, player.result(), first, last);
  }
  return result;
}

EExit PlayTyped(const PlayOptions& options) {
  if (!options.json) return Play(options).status;
  return Report("play", options.file, [&] { return Play(options); });
}

}  // namespace

void AddPlay(CLI::App& app, Work* work) {
  const auto options = std::make_shared<PlayOptions>();
  CLI::App* verb = app.add_subcommand(
      "play",
      "Fetches every frame of a channel. Prints what it found: frames, points, bounding box, bytes "
      "and the speed of the fetches.");
  verb->footer(
      "Examples:\n  kelcache play shot.pc2 --stats\n  kelcache play sim.xml --from 10 --to 20 "
      "--loop 5");
  verb->add_option("FILE", options->file, "The cache")->required();
  verb->add_option("--channel", options->channel, "Channel number or name")->capture_default_str();
  AddRangeOptions(verb, &options->range);
  verb->add_option("--rate", options->rate,
                   "Frames per second: NC and Alembic caches are visited at every frame of this "
                   "rate instead of at every sample; PC2 caches, which store no rate, take it as "
                   "theirs")
      ->type_name("FPS")
      ->check(FrameRate());
  verb->add_option("--loop", options->loop, "Play this many times")
      ->transform(WholeNumberFrom(1))
      ->capture_default_str();
  verb->add_flag("--quiet", options->quiet, "No progress bar, one line of result");
  verb->add_flag("--stats", options->stats,
                 "A line per frame: frame, points, min, max, largest move of a point since the "
                 "frame before");
  AddJsonOption(verb, &options->json);
  AddAsOption(verb, &options->asName);
  verb->callback([=] { *work = [=] { return PlayTyped(*options); }; });
}

}  // namespace kelcache
