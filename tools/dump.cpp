#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>

#include "tools/output.h"
#include "tools/source.h"
#include "tools/terminal_watch.h"
#include "tools/verbs.h"

namespace kelcache {
namespace {

using Json = nlohmann::ordered_json;

struct DumpOptions {
  std::string file;
  std::string asName;
  std::string channel = "0";
  std::optional<double> frame;
  std::optional<unsigned int> sample;
  std::string format = "json";
};

Moment FindMoment(Source& source, const ChannelSummary& channel, const DumpOptions& options) {
  Moments moments = source.MomentsOf(channel);
  if (options.sample) {
    if (*options.sample >= moments.count()) {
      throw Failed(options.file, "no sample " + std::to_string(*options.sample) + ", it has " +
                                     std::to_string(moments.count()));
    }
    return moments.At(*options.sample);
  }
  const std::optional<Moment> moment = moments.AtFrame(*options.frame);
  if (!moment) {
    const bool hasFrames = source.summary().rate.IsValid();
    throw Failed(options.file, "nothing at frame " + RoundedText(*options.frame) +
                                   (hasFrames ? "" : ": the cache has no frame rate") +
                                   "; info shows its frames");
  }
  return *moment;
}

template <typename Value>
Json OrNull(const std::optional<Value>& value) {
  return value ? Json(*value) : Json(nullptr);
}

// In quotes where JSON has no such number.
bool IsJsonNumber(const std::string& text) {
  return text.find_first_not_of("0123456789.e+-") == std::string::npos;
}

// The head by the JSON library, the values one by one: a frame may hold millions.
void PrintJson(const DumpOptions& options, const ChannelSummary& channel, const Moment& moment,
               const Array& array) {
  const Json head = {{"file", options.file},
                     {"channel", channel.index},
                     {"name", OrNull(channel.name)},
                     {"frame", OrNull(moment.frame)},
                     {"sample", OrNull(moment.sample)},
                     {"time", moment.seconds},
                     {"elements", array.elements},
                     {"components", array.components}};
  std::string text = head.dump(-1, ' ', false, Json::error_handler_t::replace);
  text.pop_back();
  std::printf("%s,\"values\":[", text.c_str());
  for (std::size_t i = 0; i < array.Count(); ++i) {
    const std::string value = ValueText(array, i);
    const char* const quote = IsJsonNumber(value) ? "" : "\"";
    std::printf("%s%s%s%s", i == 0 ? "" : ",", quote, value.c_str(), quote);
  }
  std::printf("]}\n");
}

void PrintCsv(const Array& array) {
  const char* const axes[] = {"x", "y", "z"};
  std::printf("index");
  for (unsigned int k = 0; k < array.components; ++k) {
    const std::string name = array.components == 1   ? "value"
                             : array.components <= 3 ? axes[k]
                                                     : "v" + std::to_string(k);
    std::printf(",%s", name.c_str());
  }
  std::printf("\n");
  std::size_t value = 0;
  for (unsigned int i = 0; i < array.elements; ++i) {
    std::printf("%u", i);
    for (unsigned int k = 0; k < array.components; ++k) {
      std::printf(",%s", ValueText(array, value++).c_str());
    }
    std::printf("\n");
  }
}

EExit Dump(const DumpOptions& options) {
  Source source(options.file, FormatOf(options.file, options.asName));
  const ChannelSummary& channel = source.summary().FindChannel(options.channel);
  TerminalWatch watch(false);
  NoteWhatIsMissing(source, {}, watch);
  const Moment moment = FindMoment(source, channel, options);
  const bool noPoints = source.summary().pc2 && source.summary().pc2->points == 0;
  const Array array = noPoints ? Array{nullptr, channel.value, 0, channel.components}
                               : source.Fetch(channel, moment);
  if (options.format == "csv") {
    PrintCsv(array);
  } else {
    PrintJson(options, channel, moment, array);
  }
  return eDone;
}

}  // namespace

void AddDump(CLI::App& app, Work* work) {
  const auto options = std::make_shared<DumpOptions>();
  CLI::App* verb = app.add_subcommand(
      "dump",
      "Prints the values of one moment as they are stored. Each has the shortest form that reads "
      "back to the same value.");
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
  verb->add_option("--channel", options->channel, "Channel number or name")->capture_default_str();
  verb->add_option("--format", options->format, "json: one object; csv: a line per element")
      ->check(OneOf({"json", "csv"}))
      ->capture_default_str();
  AddAsOption(verb, &options->asName);
  verb->callback([=] { *work = [=] { return Dump(*options); }; });
}

}  // namespace kelcache
