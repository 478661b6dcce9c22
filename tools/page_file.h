#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kelcache {

/// A text file being written beside its place, which Finish puts it in; ended without, it leaves
/// nothing behind. Throws eFailed.
class PageFile {
 public:
  explicit PageFile(const std::string& file);
  ~PageFile();
  PageFile(const PageFile&) = delete;
  PageFile& operator=(const PageFile&) = delete;

  /// Begins anew.
  void Restart();
  void Write(std::string_view text);
  /// Bytes so far.
  std::uint64_t size() const { return size_; }
  /// Makes the file durable and renames it over what may be in its place.
  void Finish();

 private:
  [[noreturn]] void Fail(int reason) const;

  std::string file_;
  std::string part_;
  int descriptor_ = -1;
  std::uint64_t size_ = 0;
};

}  // namespace kelcache
