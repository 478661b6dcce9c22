#pragma once

namespace kelsdk::io {

/// Where lines for a person go: what verifying and recovering have found. The function may be null;
/// it gets each line without a line break.
struct Report {
  void (*function)(void* context, const char* line) = nullptr;
  void* context = nullptr;

  /// Throws std::bad_alloc for a line above 1 KB.
  void Say(const char* format, ...) const __attribute__((format(printf, 2, 3)));
};

}  // namespace kelsdk::io
