#include <cmath>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>

#include "tools/moments.h"
#include "tools/output.h"
#include "tools/verbs.h"

namespace kelcache {
namespace {

using Json = nlohmann::ordered_json;

struct DumpOptions {
  std::string file;
  std::string asName;
  int channel = 0;
  std::optional<double> frame;
  std::optional<unsigned int> sample;
  std::string format = "json";
};

struct Values {
  const float* values = nullptr;
  unsigned int elements = 0;
  unsigned int components = 0;
};

Moment FindMoment(CacheFile& cache, const CacheSummary& summary, const ChannelSummary& channel,
                  const DumpOptions& options) {
  Moments moments(cache, summary, channel, false);
  if (options.sample) {
    if (*options.sample >= moments.count()) {
      throw Failed(options.file, "no sample " + std::to_string(*options.sample) + ", it has " +
                                     std::to_string(moments.count()));
    }
    return moments.At(*options.sample);
  }
  const std::optional<Moment> moment = moments.AtFrame(*options.frame);
  if (!moment) {
    throw Failed(options.file, "nothing at frame " + RoundedText(*options.frame) +
                                   (summary.frameRate ? "" : ": the cache has no frame rate") +
                                   "; info shows its frames");
  }
  return *moment;
}

template <typename Value>
Json OrNull(const std::optional<Value>& value) {
  return value ? Json(*value) : Json(nullptr);
}

// The head by the JSON library, the values one by one: a frame may hold millions.
void PrintJson(const DumpOptions& options, const ChannelSummary& channel, const Moment& moment,
               const Values& data) {
  const Json head = {{"file", options.file},
                     {"channel", channel.index},
                     {"name", OrNull(channel.name)},
                     {"frame", OrNull(moment.frame)},
                     {"sample", OrNull(moment.sample)},
                     {"time", moment.seconds},
                     {"elements", data.elements},
                     {"components", data.components}};
  std::string text = head.dump(-1, ' ', false, Json::error_handler_t::replace);
  text.pop_back();
  std::printf("%s,\"values\":[", text.c_str());
  const size_t count = size_t{data.elements} * data.components;
  for (size_t i = 0; i < count; ++i) {
    std::printf("%s%s", i == 0 ? "" : ",", JsonNumber(data.values[i]).c_str());
  }
  std::printf("]}\n");
}

void PrintCsv(const Values& data) {
  const char* const axes[] = {"x", "y", "z"};
  std::printf("index");
  for (unsigned int k = 0; k < data.components; ++k) {
    const std::string name = data.components == 1   ? "value"
                             : data.components <= 3 ? axes[k]
                                                    : "v" + std::to_string(k);
    std::printf(",%s", name.c_str());
  }
  std::printf("\n");
  const float* value = data.values;
  for (unsigned int i = 0; i < data.elements; ++i) {
    std::printf("%u", i);
    for (unsigned int k = 0; k < data.components; ++k) {
      std::printf(",%s", ShortestText(*value++).c_str());
    }
    std::printf("\n");
  }
}

EExit Dump(const DumpOptions& options) {
  CacheFile cache(options.file, FormatOf(options.file, options.asName));
  cache.OpenForRead();
  const CacheSummary summary = Summarise(cache);
  const ChannelSummary& channel = summary.ChannelAt(options.channel);
  const Moment moment = FindMoment(cache, summary, channel, options);
  float* values = nullptr;
  unsigned int length = 0;
  if (!cache->Read(&values, length, moment.time, static_cast<unsigned int>(channel.index))) {
    throw Failed(options.file, cache.FetchProblem(moment.sample));
  }
  const Values data{values, length / channel.components, channel.components};
  if (options.format == "csv") {
    PrintCsv(data);
  } else {
    PrintJson(options, channel, moment, data);
  }
  return eDone;
}

}  // namespace

void AddDump(CLI::App& app, Work* work) {
  const auto options = std::make_shared<DumpOptions>();
  CLI::App* verb = app.add_subcommand(
      "dump",
      "Prints the values of one moment. Each has the shortest form that reads back to the same "
      "32-bit float.");
  verb->footer(
      "Examples:\n  kelcache dump shot.pc2 --frame 12\n  kelcache dump sim.xml --sample 0 "
      "--format csv");
  verb->add_option("FILE", options->file, "The cache")->required();
  auto* moment = verb->add_option_group("moment", "Which moment");
  moment
      ->add_option("--frame", options->frame,
                   "Scene frame: the sample there, else the last one before it")
      ->type_name("FRAME")
      ->check(AnyNumber());
  moment->add_option("--sample", options->sample, "Sample number")->transform(WholeNumberFrom(0));
  moment->require_option(1);
  verb->add_option("--channel", options->channel, "Channel number")->capture_default_str();
  verb->add_option("--format", options->format, "json: one object; csv: a line per element")
      ->check(OneOf({"json", "csv"}))
      ->capture_default_str();
  AddAsOption(verb, &options->asName);
  verb->callback([=] { *work = [=] { return Dump(*options); }; });
}

}  // namespace kelcache
