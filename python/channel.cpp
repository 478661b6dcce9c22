#include "python/channel.h"

#include <pybind11/stl.h>

#include <algorithm>
#include <cstring>

#include "python/arrays.h"
#include "python/rates.h"
#include "tools/numbers.h"
#include "tools/tool_error.h"

namespace kelpython {
namespace {

using kelcache::Array;
using kelcache::ChannelSummary;
using kelcache::Moment;
using kelcache::Moments;
using kelcache::Source;
using kelcache::ValueType;

/// One channel of an open cache. What the cache says of it outlives closing.
class Channel {
 public:
  Channel(std::shared_ptr<OpenCache> cache, const ChannelSummary& summary)
      : cache_(std::move(cache)), summary_(summary) {}

  const ChannelSummary& summary() const { return summary_; }
  std::size_t Count() const { return summary_.samples; }

  py::array_t<double> Times() {
    const Use use(cache_->busy);
    Source& source = cache_->Open();
    py::array_t<double> times(static_cast<py::ssize_t>(Count()));
    double* const seconds = times.mutable_data();
    const py::gil_scoped_release unlocked;
    SignalWatch signals;
    Moments moments = source.MomentsOf(summary_);
    for (std::size_t i = 0; i < Count(); ++i) {
      seconds[i] = moments.At(i).seconds;
      signals.Look();
    }
    return times;
  }

  // What is not given is None.
  struct Asked {
    py::object time = py::none();
    py::object frame = py::none();
    py::object sample = py::none();
    py::object out = py::none();
    py::object dtype = py::none();
  };

  py::object Read(const Asked& asked) {
    if (asked.time.is_none() + asked.frame.is_none() + asked.sample.is_none() != 2) {
      throw py::type_error("read takes exactly one of time, frame and sample");
    }
    const ValueType type = TypeFor(asked.out, asked.dtype);
    const Use use(cache_->busy);
    Source& source = cache_->Open();
    Moments moments = source.MomentsOf(summary_);
    return Deliver(source, MomentOf(source, moments, asked.time, asked.frame, asked.sample), type,
                   asked.out);
  }

  // Looks at what is given alone: to look for all that may be takes longer than to read 100 points.
  py::object ReadByName(const py::kwargs& given) {
    Asked asked;
    const struct {
      const char* name;
      py::object* value;
    } known[] = {{"sample", &asked.sample},
                 {"out", &asked.out},
                 {"frame", &asked.frame},
                 {"time", &asked.time},
                 {"dtype", &asked.dtype}};
    for (const auto& [name, value] : given) {
      PyObject* const text = name.ptr();
      const auto* const found =
          std::find_if(std::begin(known), std::end(known), [text](const auto& one) {
            return PyUnicode_CompareWithASCIIString(text, one.name) == 0;
          });
      if (found == std::end(known)) {
        throw py::type_error("read takes no argument " + py::repr(name).cast<std::string>());
      }
      *found->value = py::reinterpret_borrow<py::object>(value);
    }
    return Read(asked);
  }

  py::object Get(const py::object& key) {
    if (!py::isinstance<py::slice>(key)) {
      Asked asked;
      asked.sample = key;
      return Read(asked);
    }
    py::ssize_t start = 0;
    py::ssize_t stop = 0;
    py::ssize_t step = 0;
    py::ssize_t count = 0;
    if (!py::reinterpret_borrow<py::slice>(key).compute(static_cast<py::ssize_t>(Count()), &start,
                                                        &stop, &step, &count)) {
      throw py::error_already_set();
    }
    return ReadSeveral(start, step, count, ValueType::eFloat32, py::none());
  }

  py::object ReadAll(const py::object& out, const py::object& dtype) {
    const ValueType type = TypeFor(out, dtype);
    return ReadSeveral(0, 1, static_cast<py::ssize_t>(Count()), type, out);
  }

  /// (seconds, array) of a sample.
  py::tuple TimeAndArray(std::size_t sample) {
    const Use use(cache_->busy);
    Source& source = cache_->Open();
    const Moment moment = MomentOfSample(source, sample);
    py::object array = Deliver(source, moment, ValueType::eFloat32, py::none());
    return py::make_tuple(moment.seconds, std::move(array));
  }

  std::string Repr() const {
    std::string text = "<kelcache.Channel \"" + summary_.name.value_or(kNameOfUnnamed) + "\": ";
    text += summary_.type.value_or("none") + ", " + std::to_string(summary_.samples) + " samples";
    if (summary_.points) text += " of " + std::to_string(*summary_.points) + " elements";
    if (summary_.start) {
      text += ", " + kelcache::RoundedText(*summary_.start) + " to " +
              kelcache::RoundedText(*summary_.end) + " s";
    }
    return text + ">";
  }

 private:
  ValueType TypeFor(const py::object& out, const py::object& dtype) const {
    if (out.is_none()) return AskedType(dtype, summary_.value);
    const ValueType type = TypeToFill(out, summary_.value);
    if (dtype.is_none() || AskedType(dtype, summary_.value) == type) return type;
    throw py::type_error("out is not of the dtype that is asked for");
  }

  Moment MomentOfSample(Source& source, std::size_t sample) const {
    Moments moments = source.MomentsOf(summary_);
    return moments.At(sample);
  }

  Moment MomentOf(Source& source, Moments& moments, const py::object& time, const py::object& frame,
                  const py::object& sample) const {
    if (!sample.is_none()) return moments.At(SampleNumber(sample));
    const double at = NumberOf(time.is_none() ? frame : time);
    std::optional<Moment> moment;
    {
      const py::gil_scoped_release unlocked;
      moment = time.is_none() ? moments.AtFrame(at) : moments.AtTime(at);
    }
    if (moment) return *moment;
    std::string where =
        time.is_none() ? "frame " + kelcache::RoundedText(at) : kelcache::RoundedText(at) + " s";
    if (time.is_none() && !source.summary().rate.IsValid())
      where += ": the cache has no frame rate";
    throw kelcache::ToolError(kelcache::eUsage, source.summary().file, "nothing at " + where);
  }

  std::size_t SampleNumber(const py::object& sample) const {
    const py::ssize_t number = PyNumber_AsSsize_t(sample.ptr(), PyExc_IndexError);
    if (number == -1 && PyErr_Occurred() != nullptr) throw py::error_already_set();
    const auto count = static_cast<py::ssize_t>(Count());
    const py::ssize_t place = number < 0 ? number + count : number;
    if (place >= 0 && place < count) return static_cast<std::size_t>(place);
    throw py::index_error("no sample " + std::to_string(number) + ", the channel has " +
                          std::to_string(count));
  }

  py::object Deliver(Source& source, const Moment& moment, ValueType type, const py::object& out) {
    if (!out.is_none()) return FillGiven(source, moment, type, out);
    unsigned int elements = 0;
    {
      const py::gil_scoped_release unlocked;
      elements = source.ElementsAt(summary_, moment);
    }
    py::array array(DTypeOf(type), ShapeOf(elements, summary_.components));
    void* const memory = array.mutable_data();
    const py::gil_scoped_release unlocked;
    Fill(source, moment, type, elements, memory);
    return array;
  }

  py::object FillGiven(Source& source, const Moment& moment, ValueType type,
                       const py::object& out) {
    // What it has room for is most often what there is: the lock is then let go once.
    const unsigned int room = ElementsToFill(out, summary_.components);
    void* const memory = MemoryToFill(out);
    unsigned int elements = 0;
    {
      const py::gil_scoped_release unlocked;
      elements = source.ElementsAt(summary_, moment);
      if (elements == room) Fill(source, moment, type, elements, memory);
    }
    if (elements != room || room == 0) {
      ExpectShape(out, ShapeOf(elements, summary_.components));
    }
    return out;
  }

  // Without the lock. The sample has so many elements.
  void Fill(Source& source, const Moment& moment, ValueType type, unsigned int elements,
            void* memory) {
    if (elements == 0) return;
    const std::size_t count = std::size_t{elements} * summary_.components;
    const std::size_t bytes = count * kelcache::SizeOf(type);
    cache_->room.Borrow(type == summary_.value ? memory : nullptr, bytes);
    const Array array = source.FetchInto(summary_, moment, &cache_->room);
    cache_->room.Borrow(nullptr, 0);
    if (array.Count() != count) {
      kelcache::FailAt(source.summary(), summary_, moment, "the file changed while it was read");
    }
    if (array.values == memory) return;
    const void* const values =
        type == array.type ? array.values : kelcache::AsFloats(array, &cache_->floats);
    std::memcpy(memory, values, bytes);
  }

  py::object ReadSeveral(py::ssize_t start, py::ssize_t step, py::ssize_t count, ValueType type,
                         const py::object& out) {
    const Use use(cache_->busy);
    Source& source = cache_->Open();
    unsigned int elements = 0;
    if (Count() != 0) {
      const py::gil_scoped_release unlocked;
      elements = source.ElementsAt(
          summary_, MomentOfSample(source, static_cast<std::size_t>(count != 0 ? start : 0)));
    }
    const auto shape = ShapeOf(elements, summary_.components, &count);
    if (!out.is_none()) ExpectShape(out, shape);
    py::object array = out.is_none() ? py::array(DTypeOf(type), shape) : out;
    void* const memory = MemoryToFill(array);
    const py::gil_scoped_release unlocked;
    FillSeveral(source, start, step, count, type, elements, static_cast<char*>(memory));
    return array;
  }

  // Without the lock.
  void FillSeveral(Source& source, py::ssize_t start, py::ssize_t step, py::ssize_t count,
                   ValueType type, unsigned int elements, char* memory) {
    const std::size_t bytes = std::size_t{elements} * summary_.components * kelcache::SizeOf(type);
    SignalWatch signals;
    Moments moments = source.MomentsOf(summary_);
    py::ssize_t i = 0;
    if (step == 1 && type == summary_.value && bytes != 0) {
      i = FillRun(source, static_cast<unsigned int>(start), count, bytes, memory, signals);
      memory += static_cast<std::size_t>(i) * bytes;
    }
    for (; i < count; ++i, memory += bytes) {
      const auto sample = static_cast<std::size_t>(start + i * step);
      const Moment moment = moments.At(sample);
      const unsigned int found = source.ElementsAt(summary_, moment);
      if (found != elements) {
        throw kelcache::ToolError(kelcache::eUsage, source.summary().file,
                                  "sample " + std::to_string(sample) + " has " +
                                      std::to_string(found) + " elements, sample " +
                                      std::to_string(start) + " has " + std::to_string(elements) +
                                      "; one array holds samples of the same count");
      }
      Fill(source, moment, type, elements, memory);
      signals.Look();
    }
  }

  // As many samples as can be read at once, in parts that keep Ctrl-C quick.
  static py::ssize_t FillRun(Source& source, unsigned int first, py::ssize_t count,
                             std::size_t bytes, char* memory, SignalWatch& signals) {
    constexpr std::size_t kPart = std::size_t{16} << 20;
    const auto most = static_cast<py::ssize_t>(std::max<std::size_t>(1, kPart / bytes));
    py::ssize_t done = 0;
    while (done < count) {
      const py::ssize_t samples = std::min(most, count - done);
      if (!source.FetchRun(first + static_cast<unsigned int>(done),
                           static_cast<unsigned int>(samples),
                           memory + static_cast<std::size_t>(done) * bytes)) {
        break;
      }
      done += samples;
      signals.Look();
    }
    return done;
  }

  std::shared_ptr<OpenCache> cache_;
  ChannelSummary summary_;
};

/// Goes through the samples of a channel.
class ChannelIterator {
 public:
  explicit ChannelIterator(const Channel& channel) : channel_(channel) {}

  py::tuple Next() {
    if (next_ == channel_.Count()) throw py::stop_iteration();
    return channel_.TimeAndArray(next_++);
  }

 private:
  Channel channel_;
  std::size_t next_ = 0;
};

}  // namespace

py::object MakeChannel(const std::shared_ptr<OpenCache>& cache, const ChannelSummary& summary) {
  return py::cast(Channel(cache, summary));
}

void BindChannel(py::module_& module) {
  const auto summary = [](auto member) {
    return [=](const Channel& self) { return self.summary().*member; };
  };
  py::class_<ChannelIterator>(module, "ChannelIterator")
      .def("__iter__", [](py::object self) { return self; })
      .def("__next__", &ChannelIterator::Next);

  py::class_<Channel>(module, "Channel",
                      "One channel of an open cache.\n\nchannel[i] is the array of sample i, "
                      "channel[a:b:c] those of several as one array, len(channel) the number of "
                      "samples; a loop over it gives (seconds, array).")
      .def_property_readonly(
          "name",
          [](const Channel& self) { return TextOf(self.summary().name.value_or(kNameOfUnnamed)); },
          "Its name; \"points\" of a PC2 cache, which stores none.")
      .def_property_readonly("index", summary(&ChannelSummary::index), "Its number in the cache.")
      .def_property_readonly(
          "interpretation",
          [](const Channel& self) { return TextOrNone(self.summary().interpretation); },
          "What the values mean, such as \"Points\"; None when not stored.")
      .def_property_readonly(
          "dtype", [](const Channel& self) { return DTypeOf(self.summary().value); },
          "The numpy.dtype that values are stored in.")
      .def_property_readonly("components", summary(&ChannelSummary::components),
                             "Values an element: 3 for points, 1 for scalars.")
      .def_property_readonly("sample_count", summary(&ChannelSummary::samples))
      .def_property_readonly(
          "times", &Channel::Times,
          "ndarray of float64, shape (sample_count,): the seconds of each sample.")
      .def_property_readonly("start", summary(&ChannelSummary::start),
                             "Seconds of the first sample; None without samples.")
      .def_property_readonly("end", summary(&ChannelSummary::end),
                             "Seconds of the last sample; None without samples.")
      .def_property_readonly("sampling", summary(&ChannelSummary::sampling),
                             "\"regular\" or \"irregular\"; of archives \"uniform\", \"cyclic\" or "
                             "\"acyclic\".")
      .def_property_readonly("interval", summary(&ChannelSummary::interval),
                             "Seconds from one sample to the next; None for uneven ones.")
      .def_property_readonly("maximum_error", summary(&ChannelSummary::maximumError),
                             "How far values were let move when the cache was written.")
      .def("read", &Channel::ReadByName,
           "read(*, time=None, frame=None, sample=None, out=None, dtype=None)\n\n"
           "Reads the array of one moment.\n\n"
           "time : seconds, or frame : scene frame; the last sample at or before it. sample : its "
           "number from 0, or from the end below 0. Exactly one of them.\n"
           "out : C-contiguous ndarray of the very shape, float32 or the channel's dtype, to fill; "
           "it is returned and nothing is allocated. Its contents are unspecified when reading "
           "fails.\n"
           "dtype : None for float32 (doubles and integers to the nearest float), \"native\" for "
           "what is stored.\n\n"
           "Returns an ndarray of the caller's own, shape (n, components), or (n,) for scalars.\n"
           "Raises IndexError for a sample and ValueError for a time or frame that is not there, "
           "CacheError for what cannot be read.")
      .def("read_all", &Channel::ReadAll, py::arg("out") = py::none(), py::kw_only(),
           py::arg("dtype") = py::none(),
           "Reads every sample into one ndarray, shape (sample_count, n, components), or "
           "(sample_count, n) for scalars.\n\nout and dtype as for read. Raises ValueError, which "
           "names the sample, where counts of elements differ.")
      .def("__len__", &Channel::Count)
      .def("__getitem__", &Channel::Get, py::arg("key"))
      .def("__iter__", [](const Channel& self) { return ChannelIterator(self); })
      .def("__repr__", [](const Channel& self) { return TextOf(self.Repr()); });
}

}  // namespace kelpython
