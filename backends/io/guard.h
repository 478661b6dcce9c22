#pragma once

#include <exception>
#include <new>

#include "backends/io/error.h"

namespace kelsdk::io {

/// In a catch block: what a container or a library has thrown becomes a word in `error`. Gives
/// false.
inline bool SetFromException(Error& error) noexcept {
  try {
    throw;
  } catch (const std::bad_alloc&) {
    return error.Set(Error::eNoMemory, "not enough memory");
  } catch (const std::exception& exception) {
    return error.Set(Error::eRefused, "%s", exception.what());
  } catch (...) {
    return error.Set(Error::eRefused, "unexpected failure");
  }
}

/// Runs the body of an operation that must not throw; `onFailure` stands for what it throws.
template <typename Result, typename Body>
Result Guarded(Error& error, Result onFailure, Body&& body) noexcept {
  try {
    return body();
  } catch (...) {
    SetFromException(error);
    return onFailure;
  }
}

}  // namespace kelsdk::io
