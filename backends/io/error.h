#pragma once

namespace kelsdk::io {

/// Why an operation failed. No memory of its own: setting one cannot fail. The text is a clause in
/// lower case without the file's name and without a full stop, and carries both sides of a
/// mismatch: "900 samples of 1200 bytes claimed, 4096 bytes left".
class Error {
 public:
  enum EKind {
    eNone = 0,
    eNotFound,     ///< no file of that name
    eExists,       ///< the name is taken
    eDenied,       ///< no permission, or a read-only place
    eNotAFile,     ///< a directory, a device, a pipe
    eNoSpace,      ///< disk full, quota reached, file too large
    eDevice,       ///< any other failure of the system below
    eCutShort,     ///< the file ends before what was asked for
    eDamaged,      ///< the content contradicts its format or its checksum
    eUnsupported,  ///< sound, but of a kind or version that is not served
    eRefused,      ///< the call makes no sense in this state or with these arguments
    eNoMemory,
  };

  EKind kind() const { return kind_; }
  const char* text() const { return text_; }
  explicit operator bool() const { return kind_ != eNone; }

  /// True when it is about what a file holds. Otherwise the file may be whole: it could not be
  /// looked at for now.
  bool IsAboutContent() const {
    return kind_ == eCutShort || kind_ == eDamaged || kind_ == eUnsupported;
  }

  void Clear();

  /// Sets kind and text; gives false, so that a function can `return error.Set(...)`.
  bool Set(EKind kind, const char* format, ...) __attribute__((format(printf, 3, 4)));

  /// Sets what the system's error number says: "reading 128 bytes at 32: Input/output error".
  bool SetSystem(int errorNumber, const char* format, ...) __attribute__((format(printf, 3, 4)));

 private:
  EKind kind_ = eNone;
  char text_[256] = "";
};

}  // namespace kelsdk::io
