#include "python/verbs.h"

#include <pybind11/stl.h>

#include <algorithm>
#include <chrono>
#include <cmath>

#include "python/rates.h"
#include "tools/convert.h"
#include "tools/diff.h"
#include "tools/leftovers.h"
#include "tools/merge.h"
#include "tools/moment.h"
#include "tools/recover.h"
#include "tools/retime.h"
#include "tools/tool_error.h"
#include "tools/verify.h"

namespace kelpython {
namespace {

using kelcache::CacheSummary;
using kelcache::ChannelSummary;
using kelcache::Copied;

/// Follows a verb for a Python program: its progress function, signals, and notes that are kept.
/// Lives with the interpreter lock, is called without it.
class PythonWatch : public kelcache::Watch {
 public:
  explicit PythonWatch(const py::object& progress) : progress_(progress) {}

  void Begin(std::uint64_t total, const std::string& /*file*/) override {
    total_ = total;
    done_ = 0;
  }
  void Show(std::uint64_t done) override {
    done_ = done;
    Tell(done == total_);
  }
  void End() override {}
  void ThrowIfInterrupted() override { Tell(false); }
  // At once: a call that fails has said why it may have.
  void Note(const std::string& line) override {
    notes_.push_back(line);
    const py::gil_scoped_acquire locked;
    const py::object type = py::module_::import("kelcache._errors").attr("CacheWarning");
    constexpr py::ssize_t kCaller = 2;  // of the package's function
    py::module_::import("warnings").attr("warn")(TextOf(line), type, kCaller);
  }

  py::list Notes() const {
    py::list notes;
    for (const std::string& note : notes_) notes.append(TextOf(note));
    return notes;
  }

 private:
  using Clock = std::chrono::steady_clock;

  // At once and then at most every 50 ms, for each time waits for the lock.
  void Tell(bool always) {
    constexpr auto kInterval = std::chrono::milliseconds(50);
    const auto now = Clock::now();
    if (!always && now - last_ < kInterval) return;
    last_ = now;
    const py::gil_scoped_acquire locked;
    if (PyErr_CheckSignals() != 0) throw py::error_already_set();
    if (progress_.is_none() || total_ == 0) return;
    if (!progress_(done_, total_).is(py::bool_(false))) return;
    const py::object type = py::module_::import("kelcache._errors").attr("Cancelled");
    PyErr_SetObject(type.ptr(), type().ptr());
    throw py::error_already_set();
  }

  const py::object& progress_;
  std::vector<std::string> notes_;
  std::uint64_t total_ = 0;
  std::uint64_t done_ = 0;
  Clock::time_point last_;
};

// A word among those of an option; None for its default.
template <typename Choice>
Choice ChoiceOf(const char* option, const std::optional<std::string>& word,
                const std::map<std::string, Choice>& choices) {
  if (!word) return Choice::eNone;
  const auto choice = choices.find(*word);
  if (choice != choices.end()) return choice->second;
  std::string words;
  for (const auto& [known, ignored] : choices) words += (words.empty() ? "" : ", ") + known;
  throw py::value_error(option + (": \"" + *word) + "\" is none of " + words);
}

// A channel's name or number as the verbs take it.
std::string ChannelText(const py::object& channel) {
  return channel.is_none() ? std::string() : py::str(channel).cast<std::string>();
}

std::optional<kelcache::MaxError> MaxErrorOf(const py::object& bound) {
  if (bound.is_none()) return {};
  const std::string text = py::str(bound);
  const auto taken = kelcache::ParseMaxError(text);
  if (taken) return taken;
  throw py::value_error("max_error: \"" + text +
                        "\" is not a number above 0, or a percentage such as 0.01%");
}

py::dict DictOf(const std::string& file, const Copied& copied, const PythonWatch& watch) {
  return py::dict(py::arg("file") = TextOf(file), py::arg("samples") = copied.samples,
                  py::arg("complete") = !copied.missing, py::arg("notes") = watch.Notes());
}

py::dict Convert(const py::object& source, const py::object& target, const py::object& rate,
                 const py::object& channel, const std::optional<double>& from,
                 const std::optional<double>& to, const std::optional<std::string>& resample,
                 const std::optional<std::string>& pad, bool snapFrames, bool perFrame,
                 bool compact, unsigned int compactEncoding, const py::object& maxError, bool force,
                 const py::object& progress) {
  using kelsdk::zuCacheFileInterface;
  const std::string in = PathOf(source);
  const std::string out = PathOf(target);
  kelcache::ConvertOptions options;
  if (!channel.is_none()) options.channels.only = {ChannelText(channel)};
  options.range = {from, to};
  options.rate = RateOf(rate);
  options.resample = ChoiceOf("resample", resample, kelcache::kResample);
  options.pad = ChoiceOf("pad", pad, kelcache::kPad);
  options.snapFrames = snapFrames;
  options.perFrame = perFrame;
  options.compact = compact;
  options.compactEncoding = compactEncoding;
  if (compactEncoding < zuCacheFileInterface::kFirstCompactEncoding ||
      compactEncoding > zuCacheFileInterface::kCompactEncoding) {
    throw py::value_error("compact_encoding is 1 or 2");
  }
  options.maxError = MaxErrorOf(maxError);
  options.force = force;
  PythonWatch watch(progress);
  Copied copied;
  {
    const py::gil_scoped_release unlocked;
    copied = kelcache::Convert(in, out, options, watch);
  }
  return DictOf(out, copied, watch);
}

using Names = std::vector<std::string>;

void SetForm(kelcache::NCForm* form, const std::optional<bool>& perFrame,
             const std::optional<bool>& compact) {
  form->perFrame = perFrame.value_or(false);
  form->singleFile = !perFrame.value_or(true);
  form->compact = compact.value_or(false);
  form->raw = !compact.value_or(true);
}

// What transform is given; values as the command's options take them.
kelcache::TransformOptions TransformOf(const py::dict& told) {
  kelcache::TransformOptions transform;
  transform.scale = told["scale"].cast<double>();
  transform.units = told["units"].cast<std::string>();
  transform.axis = told["axis"].cast<std::string>();
  transform.rotate = told["rotate"].cast<kelcache::Vector>();
  transform.translate = told["translate"].cast<kelcache::Vector>();
  transform.points = told["points"].cast<Names>();
  transform.vectors = told["vectors"].cast<Names>();
  transform.normals = told["normals"].cast<Names>();
  transform.leave = told["leave"].cast<Names>();
  if (!(transform.scale > 0 && std::isfinite(transform.scale))) {
    throw py::value_error("scale is not a number above 0");
  }
  for (const kelcache::Vector& vector : {transform.rotate, transform.translate}) {
    for (const double value : vector) {
      if (!std::isfinite(value)) throw py::value_error("rotate and translate are finite numbers");
    }
  }
  if (!transform.units.empty() && !kelcache::UnitsFactor(transform.units)) {
    throw py::value_error("units: \"" + transform.units + "\" is not A-to-B of " +
                          kelcache::UnitNames());
  }
  const auto axes = kelcache::AxisWords();
  if (!transform.axis.empty() && std::ranges::find(axes, transform.axis) == axes.end()) {
    throw py::value_error("axis: \"" + transform.axis + "\" is not known");
  }
  if (!transform.Moves()) throw py::value_error("nothing is to be transformed");
  return transform;
}

// trim, extract, resample and transform.
py::dict Edit(const py::object& source, const py::object& target, const Names& only,
              const Names& drop, const std::optional<double>& from, const std::optional<double>& to,
              unsigned int every, const py::object& rate,
              const std::optional<std::string>& resample, const py::object& resampleRate,
              const std::optional<py::dict>& transform, const std::optional<bool>& perFrame,
              const std::optional<bool>& compact, bool force, const py::object& progress) {
  const std::string in = PathOf(source);
  const std::string out = PathOf(target);
  kelcache::ConvertOptions options;
  options.edits = true;
  options.channels = {only, drop};
  options.range = {from, to};
  options.every = every;
  options.rate = RateOf(rate);
  options.resample = ChoiceOf("method", resample, kelcache::kResample);
  options.resampleRate = RateOf(resampleRate);
  if (transform) options.transform = TransformOf(*transform);
  if (every == 0) throw py::value_error("every is not a whole number of at least 1");
  SetForm(&options, perFrame, compact);
  options.force = force;
  PythonWatch watch(progress);
  Copied copied;
  {
    const py::gil_scoped_release unlocked;
    copied = kelcache::Convert(in, out, options, watch);
  }
  return DictOf(out, copied, watch);
}

py::dict Merge(const std::vector<py::object>& sources, const py::object& target, bool sequence,
               const std::optional<std::string>& prefer, bool allowDifferentRanges,
               const py::object& rate, const std::optional<bool>& perFrame,
               const std::optional<bool>& compact, bool force, const py::object& progress) {
  Names inputs;
  for (const py::object& source : sources) inputs.push_back(PathOf(source));
  const std::string out = PathOf(target);
  kelcache::MergeOptions options;
  options.sequence = sequence;
  options.prefer = ChoiceOf("prefer", prefer, kelcache::kPrefer);
  options.allowDifferentRanges = allowDifferentRanges;
  options.rate = RateOf(rate);
  SetForm(&options, perFrame, compact);
  options.force = force;
  PythonWatch watch(progress);
  Copied copied;
  {
    const py::gil_scoped_release unlocked;
    copied = kelcache::Merge(inputs, out, options, watch);
  }
  return DictOf(out, copied, watch);
}

py::dict Retime(const py::object& source, const py::object& target, const py::object& rate,
                const std::optional<double>& scale, const std::optional<double>& offset,
                bool perFrame, bool compact, bool force, const py::object& progress) {
  const std::string in = PathOf(source);
  const std::string out = PathOf(target);
  if (rate.is_none() + !scale + !offset != 2) {
    throw py::type_error("retime takes exactly one of rate, scale and offset");
  }
  if (scale && !(*scale > 0 && std::isfinite(*scale))) {
    throw py::value_error("scale is not a number above 0");
  }
  if (offset && !std::isfinite(*offset)) throw py::value_error("offset is not a finite number");
  kelcache::RetimeOptions options;
  options.rate = RateOf(rate);
  options.scale = scale.value_or(0);
  options.offset = offset;
  options.perFrame = perFrame;
  options.compact = compact;
  options.force = force;
  PythonWatch watch(progress);
  Copied copied;
  {
    const py::gil_scoped_release unlocked;
    copied = kelcache::Retime(in, out, options, watch);
  }
  return DictOf(out, copied, watch);
}

py::dict Diff(const py::object& pathA, const py::object& pathB, const py::object& channel,
              double tolerance, const py::object& progress) {
  const std::string a = PathOf(pathA);
  const std::string b = PathOf(pathB);
  if (!(tolerance >= 0)) throw py::value_error("tolerance is not a number of at least 0");
  PythonWatch watch(progress);
  std::vector<std::string> lines;
  kelcache::Differences found;
  {
    const py::gil_scoped_release unlocked;
    found = kelcache::Diff(
        a, b, {ChannelText(channel), tolerance},
        [&](const std::string& line) { lines.push_back(line); }, watch);
  }
  py::list differences;
  for (const std::string& line : lines) differences.append(TextOf(line));
  return py::dict(py::arg("differences") = differences, py::arg("largest") = found.largest,
                  py::arg("where") = TextOf(found.where), py::arg("complete") = !found.missing,
                  py::arg("notes") = watch.Notes());
}

py::dict Verify(const py::object& path, const std::optional<std::string>& format,
                const py::object& progress) {
  const std::string file = PathOf(path);
  PythonWatch watch(progress);
  kelcache::Verified verified;
  {
    const py::gil_scoped_release unlocked;
    verified = kelcache::Verify(file, format.value_or(""), watch);
  }
  py::list problems;
  for (const std::string& problem : verified.problems) problems.append(TextOf(problem));
  return py::dict(py::arg("file") = TextOf(file), py::arg("problems") = problems,
                  py::arg("unreadable") = verified.unreadable, py::arg("notes") = watch.Notes());
}

py::list Recover(const py::object& path, bool force) {
  const std::string file = PathOf(path);
  kelcache::Recovered recovered;
  {
    const py::gil_scoped_release unlocked;
    recovered = kelcache::Recover(file, force);
  }
  if (!recovered.done) {
    std::string why = recovered.why;
    for (const std::string& line : recovered.lines) why += "; " + line;
    throw kelcache::Failed(file, why);
  }
  py::list lines;
  for (const std::string& line : recovered.lines) lines.append(TextOf(line));
  return lines;
}

py::dict DictOf(const ChannelSummary& channel) {
  return py::dict(py::arg("index") = channel.index, py::arg("name") = TextOrNone(channel.name),
                  py::arg("type") = channel.type,
                  py::arg("interpretation") = TextOrNone(channel.interpretation),
                  py::arg("samples") = channel.samples, py::arg("points") = channel.points,
                  py::arg("start") = channel.start, py::arg("end") = channel.end,
                  py::arg("sampling") = channel.sampling, py::arg("interval") = channel.interval,
                  py::arg("maximum_error") = channel.maximumError);
}

py::dict DictOf(const CacheSummary& summary, const PythonWatch& watch) {
  py::list channels;
  for (const ChannelSummary& channel : summary.channels) channels.append(DictOf(channel));
  py::list files;
  for (const auto& file : summary.dataFiles) {
    files.append(py::make_tuple(TextOf(file.name), file.size));
  }
  py::dict info(
      py::arg("file") = TextOf(summary.file),
      py::arg("format") = kelcache::RowOf(summary.format).name,
      py::arg("frame_rate") = summary.frameRate(),
      py::arg("frame_rate_source") = summary.frameRateSource,
      py::arg("exact_frame_rate") = summary.exactRate(),
      py::arg("ticks_per_frame") = summary.ticksPerFrame, py::arg("complete") = summary.complete,
      py::arg("missing") = summary.WhatIsMissing(),
      py::arg("first_frame") = kelcache::FirstFrame(summary),
      py::arg("last_frame") = kelcache::LastFrame(summary), py::arg("start") = summary.start(),
      py::arg("end") = summary.end(), py::arg("span") = summary.span(),
      py::arg("duration") = summary.duration(), py::arg("file_size") = summary.fileSize,
      py::arg("promised_size") = summary.promisedSize, py::arg("channels") = channels,
      py::arg("data_files") = files, py::arg("notes") = watch.Notes());
  const auto& compact = summary.compact;
  using Size = std::optional<std::uint64_t>;
  info["compact_encoding"] = compact ? py::cast(compact->encoding) : py::object(py::none());
  info["array_bytes"] = compact ? compact->arrayBytes : Size();
  info["stored_bytes"] = compact ? compact->storedBytes : Size();
  return info;
}

py::dict Info(const py::object& path, const std::optional<std::string>& format) {
  const std::string file = PathOf(path);
  CacheSummary summary;
  const py::object none = py::none();
  PythonWatch watch(none);
  {
    const py::gil_scoped_release unlocked;
    const kelcache::Format as = kelcache::FormatOf(file, format.value_or(""));
    kelcache::NoteLeftovers(file, as, watch);
    kelcache::CacheFile cache(file, as);
    cache.OpenForRead();
    summary = kelcache::Summarise(cache);
  }
  return DictOf(summary, watch);
}

}  // namespace

void BindVerbs(py::module_& module) {
  module.def("convert", &Convert);
  module.def("edit", &Edit);
  module.def("merge", &Merge);
  module.def("retime", &Retime);
  module.def("diff", &Diff);
  module.def("verify", &Verify);
  module.def("recover", &Recover);
  module.def("info", &Info);
}

}  // namespace kelpython
