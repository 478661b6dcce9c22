#include "tools/edit_options.h"

#include "tools/options.h"

namespace kelcache {
namespace {

std::optional<Vector> ParseVector(const std::string& text) {
  const std::vector<std::string> words = CLI::detail::split(text, ',');
  if (words.size() != 3) return {};
  Vector vector;
  for (std::size_t i = 0; i < vector.size(); ++i) {
    const auto number = ParseNumber(words[i]);
    if (!number) return {};
    vector[i] = *number;
  }
  return vector;
}

void AddVector(CLI::App* verb, const char* name, Vector* vector, const char* words) {
  verb->add_option_function<std::string>(
          name, [=](const std::string& text) { *vector = ParseVector(text).value(); }, words)
      ->type_name("X,Y,Z")
      ->check(CLI::Validator(
          [](const std::string& text) {
            return ParseVector(text) ? std::string() : '"' + text + "\" is not three numbers X,Y,Z";
          },
          ""));
}

CLI::Validator Units() {
  return {[](const std::string& word) {
            return UnitsFactor(word) ? std::string()
                                     : '"' + word + "\" is not A-to-B of " + UnitNames();
          },
          ""};
}

// One name each time, so that a file after it stays a file.
void AddNames(CLI::App* verb, const char* name, std::vector<std::string>* names,
              const std::string& words) {
  verb->add_option(name, *names, words)->type_name("CHANNEL")->allow_extra_args(false);
}

}  // namespace

void AddChannelOptions(CLI::App* verb, ChannelChoice* channels, const std::string& otherwise) {
  AddNames(verb, "--channel", &channels->only,
           "Channel number or name, which may be given several times " + otherwise);
  AddNames(verb, "--drop", &channels->drop, "Likewise a channel to leave out");
}

CLI::Option* AddEveryOption(CLI::App* verb, unsigned int* every) {
  return verb
      ->add_option("--every", *every,
                   "Of each channel's samples, counted from the first in the range, take one in N")
      ->transform(WholeNumberFrom(1));
}

void AddFormOptions(CLI::App* verb, NCForm* form) {
  auto* const perFrame =
      verb->add_flag("--per-frame", form->perFrame, "NC: one data file per frame");
  verb->add_flag("--single-file", form->singleFile, "NC: one data file (default: as the source)")
      ->excludes(perFrame);
  auto* const compact =
      verb->add_flag("--compact", form->compact, "NC: lossless compression (ncc)");
  verb->add_flag("--raw", form->raw, "NC: no compression (default: as the source)")
      ->excludes(compact);
}

void AddTransformOptions(CLI::App* verb, TransformOptions* transform) {
  verb->add_option("--scale", transform->scale, "Multiply points and vectors by this")
      ->check(NumberAboveZero());
  verb->add_option("--units", transform->units,
                   "Change the unit of points and vectors, such as cm-to-m; of " + UnitNames())
      ->type_name("A-to-B")
      ->check(Units());
  verb->add_option("--axis", transform->axis, "Turn the upward axis")->check(OneOf(AxisWords()));
  AddVector(verb, "--rotate", &transform->rotate,
            "Degrees about the x axis, then y, then z, counter-clockwise seen from the axis's end");
  AddVector(verb, "--translate", &transform->translate, "Add this to points, last of all");
  AddNames(verb, "--points", &transform->points, "A channel that holds points");
  AddNames(verb, "--vectors", &transform->vectors,
           "A channel that holds vectors, such as velocities, which are not translated");
  AddNames(verb, "--normals", &transform->normals, "A channel that holds directions, only turned");
  AddNames(verb, "--leave", &transform->leave, "A channel that stays as it is");
}

}  // namespace kelcache
