#include "python/writer.h"

#include <pybind11/stl.h>
#include <unistd.h>

#include <algorithm>
#include <set>

#include "python/arrays.h"
#include "python/open_cache.h"
#include "python/outputs.h"
#include "python/rates.h"
#include "tools/formats.h"
#include "tools/numbers.h"
#include "tools/target.h"
#include "tools/tool_error.h"

namespace kelpython {
namespace {

using kelcache::SinkChannel;
using kelcache::ToolError;

ToolError Wrong(const Plan& plan, const std::string& why) {
  return {kelcache::eUsage, plan.file, why};
}

// {"points": "float32[3]", "ids": ("int32", "Ids")}
std::vector<SinkChannel> ChannelsOf(const Plan& plan, const py::object& described,
                                    double maximumError) {
  std::vector<SinkChannel> channels;
  for (const auto& [name, what] : py::dict(described)) {
    SinkChannel channel;
    channel.name = py::cast<std::string>(name);
    std::string type;
    if (py::isinstance<py::str>(what)) {
      type = py::cast<std::string>(what);
      if (channels.empty()) channel.interpretation = "Points";
    } else {
      std::tie(type, channel.interpretation) = py::cast<std::pair<std::string, std::string>>(what);
    }
    const auto known = kelcache::kElementTypes.find(type);
    if (known == kelcache::kElementTypes.end()) {
      std::string words;
      for (const auto& [word, ignored] : kelcache::kElementTypes)
        words += (words.empty() ? "" : ", ") + word;
      throw Wrong(plan, "channel " + channel.name + ": \"" + type + "\" is none of " + words);
    }
    channel.type = known->second;
    const bool integers = kelcache::IsInteger(kelcache::ValueTypeOf(channel.type));
    channel.maximumError = integers ? 0 : maximumError;
    channels.push_back(channel);
  }
  if (channels.empty()) throw Wrong(plan, "a cache without channels");
  return channels;
}

/// The Python object of a cache that is being written.
class Writer {
 public:
  Writer(const Plan& plan, std::unique_ptr<Output> output)
      : plan_(plan), output_(std::move(output)) {}
  // A child process that ends must not put away what its parent is writing.
  ~Writer() {
    if (process_ != ::getpid()) static_cast<void>(output_.release());
  }
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;

  const Plan& plan() const { return plan_; }
  bool IsClosed() const { return output_ == nullptr; }

  void Write(const py::object& frame, const py::object& arrays, const py::object& time) {
    const Use use(busy_);
    Output& output = Open();
    if (failed_) throw kelcache::Failed(plan_.file, "an earlier write failed");
    const std::int64_t place = output.PlaceOf(FrameOf(frame, time));
    const std::map<unsigned int, std::unique_ptr<GivenArray>> given = Take(arrays, place);
    const py::gil_scoped_release unlocked;
    // Until all is written.
    failed_ = true;
    if (place != place_) {
      written_.clear();
      places_.insert(place);
      place_ = place;
    }
    for (const auto& [channel, array] : given) {
      output.Write(place, channel, array->array());
      written_.insert(channel);
    }
    failed_ = false;
  }

  void Close() {
    const Use use(busy_);
    if (IsClosed()) return;
    Open();
    const py::gil_scoped_release unlocked;
    // Whatever comes of it, this is its end.
    const std::unique_ptr<Output> output = std::move(output_);
    if (failed_)
      throw kelcache::Failed(plan_.file, "an earlier write failed; nothing was published");
    output->Finish();
  }

  void Discard() {
    const Use use(busy_);
    if (IsClosed()) return;
    Open();
    const py::gil_scoped_release unlocked;
    output_.reset();
  }

  void Exit(const py::object& type, const py::object& /*value*/, const py::object& /*trace*/) {
    type.is_none() ? Close() : Discard();
  }

 private:
  Output& Open() {
    if (IsClosed()) throw py::value_error("the cache is closed");
    if (process_ != ::getpid()) {
      throw std::runtime_error("the cache is being written by another process, a parent of this");
    }
    return *output_;
  }

  double FrameOf(const py::object& frame, const py::object& time) const {
    if (frame.is_none() == time.is_none()) {
      throw py::type_error("write takes exactly one of frame and time");
    }
    if (!frame.is_none()) return NumberOf(frame);
    return NumberOf(time) * plan_.rate.PerSecond();
  }

  // Everything that can be wrong with the arrays is found before one is written.
  std::map<unsigned int, std::unique_ptr<GivenArray>> Take(const py::object& arrays,
                                                           std::int64_t place) const {
    if (place != place_ && places_.count(place) != 0) {
      throw Wrong(plan_, "that frame has been written already");
    }
    std::map<unsigned int, std::unique_ptr<GivenArray>> given;
    for (const auto& [key, values] : py::dict(arrays)) {
      const auto name = py::cast<std::string>(key);
      const unsigned int channel = ChannelNamed(name);
      if (place == place_ && written_.count(channel) != 0) {
        throw Wrong(plan_, "channel " + name + " has been written at that frame already");
      }
      auto array = std::make_unique<GivenArray>(name, py::reinterpret_borrow<py::object>(values),
                                                plan_.channels[channel].type);
      output_->Expect(array->array());
      given.emplace(channel, std::move(array));
    }
    if (given.empty()) throw Wrong(plan_, "no arrays to write");
    return given;
  }

  unsigned int ChannelNamed(const std::string& name) const {
    for (unsigned int i = 0; i < plan_.channels.size(); ++i) {
      if (plan_.channels[i].name == name) return i;
    }
    throw py::key_error(name);
  }

  Plan plan_;
  std::unique_ptr<Output> output_;
  std::atomic<bool> busy_ = false;
  std::set<std::int64_t> places_;   // ever written
  std::int64_t place_ = INT64_MIN;  // being written
  std::set<unsigned int> written_;  // there
  bool failed_ = false;
  pid_t process_ = ::getpid();
};

std::unique_ptr<Writer> Create(const py::object& path, const py::object& rate, bool compact,
                               bool perFrame, const py::object& channels,
                               const std::optional<unsigned int>& points,
                               const std::optional<unsigned int>& samples,
                               const std::optional<double>& start,
                               const std::optional<double>& maximumError, bool force) {
  Plan plan;
  plan.file = PathOf(path);
  plan.rate = RateOf(rate);
  plan.compact = compact;
  plan.perFrame = perFrame;
  const kelcache::Format format = kelcache::FormatOf(plan.file, "");
  kelcache::ExpectWritten(format, plan.file);
  const bool hasLayouts = kelcache::RowOf(format).hasLayouts;
  if (hasLayouts && (points || samples || start)) {
    throw Wrong(plan, "points, samples and start are for PC2 files");
  }
  if (!hasLayouts && (compact || perFrame)) {
    throw Wrong(plan, "per_frame and compact are for NC caches (.xml)");
  }
  if (maximumError && (!compact || !(*maximumError > 0))) {
    throw Wrong(plan, "max_error goes with compact and is a number above 0");
  }
  const py::object described =
      channels.is_none() ? py::dict(py::arg("points") = "float32[3]") : channels;
  plan.channels = ChannelsOf(plan, described, maximumError.value_or(0));
  if (!hasLayouts) {
    const bool isPlain = plan.channels.size() == 1 &&
                         plan.channels[0].type == kelsdk::zuCacheData::eNCFloatVectorArray;
    if (!isPlain) throw Wrong(plan, "a PC2 cache has one channel, of float32[3]");
    if (!points || !samples) throw Wrong(plan, "a PC2 cache needs points and samples");
    plan.points = *points;
    plan.samples = *samples;
    plan.start = start.value_or(0);
  }
  const py::gil_scoped_release unlocked;
  const kelcache::Target target(plan.file, force);
  auto output = hasLayouts ? MakeNCOutput(plan) : MakePC2Output(plan);
  return std::make_unique<Writer>(plan, std::move(output));
}

std::string Repr(const Writer& self) {
  std::string text = self.IsClosed() ? "<closed kelcache.Writer \"" : "<kelcache.Writer \"";
  text += self.plan().file + "\":";
  for (const SinkChannel& channel : self.plan().channels) {
    text += " " + channel.name + " " +
            kelcache::TypeText(kelcache::ValueTypeOf(channel.type),
                               kelsdk::GetTypeLength(channel.type)) +
            ",";
  }
  return text + " " + kelcache::RoundedText(self.plan().rate.PerSecond()) + " frames/s>";
}

}  // namespace

void BindWriter(py::module_& module) {
  py::class_<Writer>(
      module, "Writer",
      "A cache that is being written; kelcache.create makes it.\n\nLeaving the with "
      "block, or close(), publishes it durably; an exception in the block, discard() "
      "or the end of the object leaves nothing behind and an older cache as it "
      "was. Serves one thread at a time and the process that made it.")
      .def("__enter__", [](py::object self) { return self; })
      .def("__exit__", &Writer::Exit)
      .def("write", &Writer::Write, py::arg("frame") = py::none(), py::arg("arrays") = py::dict(),
           py::kw_only(), py::arg("time") = py::none(),
           "Writes the arrays of one moment.\n\nframe : scene frame, or time : seconds. NC caches "
           "keep the nearest tick, 6000 to the second.\narrays : by channel name, shape (n, 3) for "
           "vectors and (n,) for scalars; floats go to the nearest float of the channel, integers "
           "must fit. All are checked before one is written. Further channels of the same moment "
           "may follow in the next call.\n\nRaises KeyError for an unknown channel, TypeError for "
           "another kind of values, ValueError for a wrong shape and for a moment that has been "
           "written or that a PC2 cache does not have, CacheError when the disk fails.")
      .def("close", &Writer::Close,
           "Publishes the cache durably, in the place of an older one. Raises CacheError, with "
           "nothing published, when that can not be done.")
      .def("discard", &Writer::Discard, "Gives the write up and removes what it has made.")
      .def_property_readonly("closed", &Writer::IsClosed)
      .def("__repr__", [](const Writer& self) { return TextOf(Repr(self)); });

  module.def("create", &Create, py::arg("path"), py::arg("rate") = 24.0, py::kw_only(),
             py::arg("compact") = false, py::arg("per_frame") = false,
             py::arg("channels") = py::none(), py::arg("points") = py::none(),
             py::arg("samples") = py::none(), py::arg("start") = py::none(),
             py::arg("max_error") = py::none(), py::arg("force") = false,
             "Begins to write a cache, NC (.xml) or PC2 (.pc2), and returns a Writer.\n\n"
             "rate : frames per second, a number, fractions.Fraction or text such as "
             "\"24000/1001\"; PC2 stores none.\n"
             "compact, per_frame : NC: compressed arrays; a data file for each frame.\n"
             "channels : NC: name to type (float32[3], float32, float64[3], float64, int32), or to "
             "(type, interpretation); else {\"points\": \"float32[3]\"}.\n"
             "points, samples, start : PC2: points a sample, samples in the file, frame of the "
             "first (0). Every sample is to be written.\n"
             "max_error : with compact: how far floats may move, in their own unit.\n"
             "force : replace a cache that is there.\n\n"
             "Raises ValueError for what a format does not have, CacheError for a file that is in "
             "the way.");
}

}  // namespace kelpython
