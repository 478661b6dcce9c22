#pragma once

namespace kelsdk::io {

/// Where lines for a person go: what verifying and recovering have found. The function may be null;
/// it gets each line without a line break.
struct Report {
  void (*function)(void* context, const char* line) = nullptr;
  void* context = nullptr;
  /// Told how much is done, in parts of the work's own size; false ends it. May be null.
  bool (*proceed)(void* context, unsigned long long done, unsigned long long total) = nullptr;

  /// Throws std::bad_alloc for a line above 1 KB.
  void Say(const char* format, ...) const __attribute__((format(printf, 2, 3)));

  bool Proceed(unsigned long long done, unsigned long long total) const {
    return proceed == nullptr || proceed(context, done, total);
  }
};

}  // namespace kelsdk::io
