#include <cstdio>
#include <memory>

#include "tools/convert.h"
#include "tools/copied_result.h"
#include "tools/edit_options.h"
#include "tools/verbs.h"

namespace kelcache {
namespace {

// A verb that makes one cache of another: conversions under a name that says what they are for.
struct Typed : ConvertOptions {
  std::string in;
  std::string out;
  bool json = false;
};
using Edit = std::shared_ptr<Typed>;

// The parts that all of them have. `lacks`: what is to be given besides, "" for nothing.
template <typename Lacks>
CLI::App* AddEdit(CLI::App& app, Work* work, const Edit& edit, const char* name,
                  const char* description, Lacks&& lacks) {
  CLI::App* const verb = app.add_subcommand(name, description);
  edit->edits = true;
  verb->add_option("IN", edit->in, "The cache to read")->required();
  verb->add_option("OUT", edit->out, "The cache to write, PC2 or NC")->required();
  AddChannelOptions(verb, &edit->channels, "(default: all)");
  AddFormOptions(verb, edit.get());
  verb->add_flag("--force", edit->force, "Replace a cache that is there");
  AddJsonOption(verb, &edit->json);
  verb->callback([=] {
    const std::string what = lacks(*edit);
    if (!what.empty()) throw CLI::RequiredError(what);
    *work = [=] {
      return TellCopy(name, edit->in, edit->out, edit->json,
                      [&](Watch& watch) { return Convert(edit->in, edit->out, *edit, watch); });
    };
  });
  return verb;
}

void AddRate(CLI::App* verb, Typed* edit) {
  verb->add_option("--rate", edit->rate,
                   "Frames per second of a cache that stores none (PC2: else 24)")
      ->type_name("FPS")
      ->check(FrameRate());
}

}  // namespace

void AddTrim(CLI::App& app, Work* work) {
  const auto edit = std::make_shared<Typed>();
  CLI::App* const verb =
      AddEdit(app, work, edit, "trim", "Writes the samples of some frames of a cache.",
              [](const Typed& typed) {
                const bool isWhole = typed.range.IsOpen() && typed.every == 1;
                return isWhole ? "--from, --to or an --every above 1" : "";
              });
  verb->footer(
      "Examples:\n  kelcache trim shot.xml part.xml --from 1001 --to 1050\n"
      "  kelcache trim shot.pc2 coarse.pc2 --every 4");
  AddRangeOptions(verb, &edit->range);
  AddEveryOption(verb, &edit->every);
  AddRate(verb, edit.get());
}

void AddExtract(CLI::App& app, Work* work) {
  const auto edit = std::make_shared<Typed>();
  CLI::App* const verb = AddEdit(
      app, work, edit, "extract", "Writes some channels of a cache.",
      [](const Typed& typed) { return typed.channels.IsAll() ? "--channel or --drop" : ""; });
  verb->footer(
      "Examples:\n  kelcache extract sim.xml points.xml --channel P --channel id\n"
      "  kelcache extract sim.xml rest.xml --drop velocity");
  AddRate(verb, edit.get());
}

void AddResample(CLI::App& app, Work* work) {
  const auto edit = std::make_shared<Typed>();
  edit->resample = EResample::eLinear;
  CLI::App* const verb = AddEdit(app, work, edit, "resample",
                                 "Writes a cache at another frame rate. Times in seconds stay; "
                                 "where a frame falls on a sample "
                                 "it is that sample. Integers, and counts that change, are held.",
                                 [](const Typed& /*typed*/) { return ""; });
  verb->footer(
      "Examples:\n  kelcache resample shot.xml film.xml --rate 24\n"
      "  kelcache resample shot.pc2 fast.pc2 --source-rate 24 --rate 60 --method cubic");
  verb->add_option("--rate", edit->resampleRate, "Frames per second of the new cache")
      ->type_name("FPS")
      ->check(FrameRate())
      ->required();
  verb->add_option("--source-rate", edit->rate,
                   "PC2: frames per second of the source, for the file stores none")
      ->type_name("FPS")
      ->check(FrameRate());
  verb->add_option_function<std::string>(
          "--method", [=](const std::string& word) { edit->resample = kResample.at(word); },
          "Between samples: hold takes the one before, linear a line, cubic a curve through four "
          "(default: linear)")
      ->check(OneOf(WordsOf(kResample)));
}

void AddTransform(CLI::App& app, Work* work) {
  const auto edit = std::make_shared<Typed>();
  CLI::App* const verb = AddEdit(
      app, work, edit, "transform",
      "Moves what a cache holds in space. Scale and units come first, then axis, rotation and "
      "translation. A channel's interpretation says whether it holds points, vectors, normals or "
      "boxes; integers, single values and colours stay.",
      [](const Typed& typed) {
        return typed.transform.Moves()
                   ? ""
                   : "a change: --scale, --units, --axis, --rotate or --translate";
      });
  verb->footer(
      "Examples:\n  kelcache transform shot.pc2 metres.pc2 --units cm-to-m --axis y-up-to-z-up\n"
      "  kelcache transform sim.xml there.xml --translate 0,10,-2.5 --vectors v --leave mass");
  AddTransformOptions(verb, &edit->transform);
  AddRate(verb, edit.get());
}

}  // namespace kelcache
