#include "python/open_cache.h"

#include <pybind11/stl.h>

#include "python/channel.h"
#include "python/rates.h"
#include "tools/numbers.h"

namespace kelpython {

Use::Use(std::atomic<bool>& busy) : busy_(busy) {
  if (busy_.exchange(true)) {
    throw std::runtime_error("the object is in use on another thread; it serves one at a time");
  }
}

kelcache::Source& OpenCache::Open() {
  if (!source) throw py::value_error("the cache is closed");
  return *source;
}

namespace {

using kelcache::CacheSummary;
using kelcache::ChannelSummary;

std::string NameOf(const ChannelSummary& channel) {
  return channel.name.value_or(kNameOfUnnamed);
}

/// The channels of a cache by name or number.
struct Channels {
  std::shared_ptr<OpenCache> cache;
  std::shared_ptr<const CacheSummary> summary;

  const ChannelSummary* Find(const py::object& key) const {
    const auto& all = summary->channels;
    if (PyIndex_Check(key.ptr()) != 0) {
      py::ssize_t index = PyNumber_AsSsize_t(key.ptr(), PyExc_IndexError);
      if (index == -1 && PyErr_Occurred() != nullptr) throw py::error_already_set();
      const auto count = static_cast<py::ssize_t>(all.size());
      if (index < 0) index += count;
      return index >= 0 && index < count ? &all[static_cast<std::size_t>(index)] : nullptr;
    }
    if (!py::isinstance<py::str>(key)) return nullptr;
    const std::string name = PathOf(key);
    for (const ChannelSummary& channel : all) {
      if (NameOf(channel) == name) return &channel;
    }
    return FindByObject(name);
  }

 private:
  // An archive's object stands for its positions; the cache itself knows which these are.
  const ChannelSummary* FindByObject(const std::string& name) const {
    const Use use(cache->busy);
    if (summary->pc2 || name.empty() || !cache->source) return nullptr;
    const int index = cache->source->cache()->GetChannelIndex(name.c_str(), nullptr);
    return index >= 0 ? &summary->channels[static_cast<std::size_t>(index)] : nullptr;
  }
};

py::object Get(const Channels& channels, const py::object& key) {
  const ChannelSummary* const found = channels.Find(key);
  if (found != nullptr) return MakeChannel(channels.cache, *found);
  if (PyIndex_Check(key.ptr()) != 0) {
    throw py::index_error("no channel " + py::str(key).cast<std::string>() + ", it has " +
                          std::to_string(channels.summary->channels.size()));
  }
  PyErr_SetObject(PyExc_KeyError, key.ptr());
  throw py::error_already_set();
}

py::list Names(const Channels& channels) {
  py::list names;
  for (const ChannelSummary& channel : channels.summary->channels)
    names.append(TextOf(NameOf(channel)));
  return names;
}

py::list Values(const Channels& channels) {
  py::list values;
  for (const ChannelSummary& channel : channels.summary->channels) {
    values.append(MakeChannel(channels.cache, channel));
  }
  return values;
}

/// The Python object of an open cache. What the cache says of itself outlives closing.
class Cache {
 public:
  Cache(const py::object& path, const std::optional<std::string>& format, const py::object& rate) {
    const std::string file = PathOf(path);
    const kelcache::Format as = kelcache::FormatOf(file, format.value_or(""));
    const kelsdk::KelFrameRate given = RateOf(rate);
    const py::gil_scoped_release unlocked;
    cache_ = std::make_shared<OpenCache>(file, as, given);
    summary_ = std::make_shared<const CacheSummary>(cache_->source->summary());
  }

  const CacheSummary& summary() const { return *summary_; }
  Channels channels() const { return {cache_, summary_}; }
  bool IsClosed() const { return !cache_->source; }
  void Close() {
    const Use use(cache_->busy);
    cache_->source.reset();
  }

  std::string Repr() const {
    if (IsClosed()) return "<closed kelcache.Cache \"" + summary_->file + "\">";
    std::string text = "<kelcache.Cache \"" + summary_->file +
                       "\": " + kelcache::RowOf(summary_->format).name + ", ";
    text += std::to_string(summary_->channels.size()) +
            (summary_->channels.size() == 1 ? " channel" : " channels");
    if (summary_->rate.IsValid()) {
      text += ", " + kelcache::RoundedText(summary_->rate.PerSecond()) + " frames/s";
    }
    if (summary_->start() && summary_->end()) {
      text += ", " + kelcache::RoundedText(*summary_->start()) + " to " +
              kelcache::RoundedText(*summary_->end()) + " s";
    }
    if (!summary_->complete) text += ", " + summary_->WhatIsMissing();
    return text + ">";
  }

 private:
  std::shared_ptr<OpenCache> cache_;
  std::shared_ptr<const CacheSummary> summary_;
};

}  // namespace

void BindCache(py::module_& module) {
  py::class_<Channels>(module, "Channels",
                       "The channels of a cache, in order: a mapping by name that takes numbers "
                       "too.\n\nAn archive's object path finds the positions of that object.")
      .def("__len__", [](const Channels& self) { return self.summary->channels.size(); })
      .def("__iter__", [](const Channels& self) { return py::iter(Names(self)); })
      .def("__contains__",
           [](const Channels& self, const py::object& key) { return self.Find(key) != nullptr; })
      .def("__getitem__", &Get,
           "Raises KeyError for a name and IndexError for a number that is not there.")
      .def(
          "get",
          [](const Channels& self, const py::object& key, const py::object& otherwise) {
            const ChannelSummary* const found = self.Find(key);
            return found != nullptr ? MakeChannel(self.cache, *found) : otherwise;
          },
          py::arg("key"), py::arg("default") = py::none())
      .def("keys", &Names)
      .def("values", &Values)
      .def(
          "items",
          [](const Channels& self) {
            return py::list(py::module_::import("builtins").attr("zip")(Names(self), Values(self)));
          })
      .def("__repr__", [](const Channels& self) {
        return py::str("<kelcache.Channels {!r}>").format(Names(self));
      });

  py::class_<Cache>(
      module, "Cache",
      "A cache that is open for reading; kelcache.open makes it.\n\nServes one thread "
      "at a time and raises RuntimeError when two use it at once; several caches on "
      "several threads run side by side. Ends with close() or a with block.")
      .def(py::init<const py::object&, const std::optional<std::string>&, const py::object&>(),
           py::arg("path"), py::arg("format") = py::none(), py::arg("rate") = py::none())
      .def("__enter__", [](py::object self) { return self; })
      .def("__exit__", [](Cache& self, const py::args&) { self.Close(); })
      .def("close", &Cache::Close, "Closes the file. Reading raises ValueError from here on.")
      .def_property_readonly("closed", &Cache::IsClosed)
      .def_property_readonly(
          "path", [](const Cache& self) { return TextOf(self.summary().file); },
          "The path that the cache was opened by.")
      .def_property_readonly(
          "format", [](const Cache& self) { return kelcache::RowOf(self.summary().format).name; },
          "\"pc2\", \"nc\" or \"alembic\".")
      .def_property_readonly(
          "frame_rate", [](const Cache& self) { return self.summary().frameRate(); },
          "Frames per second: stored, derived from even sample times or, of PC2, assumed (24); "
          "None "
          "when unknown.")
      .def_property_readonly(
          "start", [](const Cache& self) { return self.summary().start(); },
          "Seconds of the earliest sample; None without samples.")
      .def_property_readonly(
          "end", [](const Cache& self) { return self.summary().end(); },
          "Seconds of the latest sample; None without samples.")
      .def_property_readonly(
          "complete", [](const Cache& self) { return self.summary().complete; },
          "Whether the files hold all that their headers promise.")
      .def_property_readonly("channels", &Cache::channels,
                             "The channels in order, by name or number.")
      .def("__repr__", [](const Cache& self) { return TextOf(self.Repr()); });
}

}  // namespace kelpython
