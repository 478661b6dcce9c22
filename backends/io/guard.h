#pragma once

#include <exception>
#include <new>

#include "backends/io/error.h"

namespace kelsdk::io {

/// Runs the body of an operation that must not throw: what a container or a library throws becomes
/// `onFailure` and a word in `error`.
template <typename Result, typename Body>
Result Guarded(Error& error, Result onFailure, Body&& body) noexcept {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    error.Set(Error::eNoMemory, "not enough memory");
  } catch (const std::exception& exception) {
    error.Set(Error::eRefused, "%s", exception.what());
  } catch (...) {
    error.Set(Error::eRefused, "unexpected failure");
  }
  return onFailure;
}

}  // namespace kelsdk::io
