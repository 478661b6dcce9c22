#include "python/errors.h"

#include <exception>

#include "tools/tool_error.h"

namespace kelpython {

void TranslateErrors() {
  py::register_exception_translator([](std::exception_ptr thrown) {
    try {
      if (thrown) std::rethrow_exception(thrown);
    } catch (const kelcache::ToolError& error) {
      if (error.status() == kelcache::eUsage) {
        PyErr_SetObject(PyExc_ValueError, TextOf(error.what()).ptr());
        return;
      }
      const py::object type = py::module_::import("kelcache._errors").attr("CacheError");
      const py::object file = error.file().empty() ? py::object(py::none()) : TextOf(error.file());
      PyErr_SetObject(type.ptr(), type(TextOf(error.reason()), file).ptr());
    }
  });
}

std::string PathOf(py::handle path) {
  PyObject* bytes = nullptr;
  if (PyUnicode_FSConverter(path.ptr(), &bytes) == 0) throw py::error_already_set();
  return py::reinterpret_steal<py::bytes>(bytes);
}

py::str TextOf(const std::string& path) {
  PyObject* const text =
      PyUnicode_DecodeFSDefaultAndSize(path.data(), static_cast<Py_ssize_t>(path.size()));
  if (text == nullptr) throw py::error_already_set();
  return py::reinterpret_steal<py::str>(text);
}

py::object TextOrNone(const std::optional<std::string>& text) {
  return text ? py::object(TextOf(*text)) : py::object(py::none());
}

void SignalWatch::Look() {
  constexpr auto kInterval = std::chrono::milliseconds(50);
  const auto now = Clock::now();
  if (now - last_ < kInterval) return;
  last_ = now;
  const py::gil_scoped_acquire locked;
  if (PyErr_CheckSignals() != 0) throw py::error_already_set();
}

}  // namespace kelpython
