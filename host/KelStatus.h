#pragma once

#include "host/KelApi.h"
#include "host/KelString.h"

namespace kelsdk {

/// The outcome of an operation: a code and, for most failures, a message.
class KEL_API KelStatus {
 public:
  enum EStatusCode {
    eSuccess = 0,
    eFailure = 1,           ///< a failure; most carry a message
    eInvalidParameter = 3,  ///< an argument that the operation cannot use
    eIndexOutOfRange = 4,   ///< a channel index out of range
  };

  /// Code eSuccess, no message.
  void Clear() noexcept;

  /// Sets the code and removes the message.
  void SetCode(EStatusCode code) noexcept;

  /// Sets the code and a message made from a printf format. Without memory for the message the code
  /// alone is set.
  void SetCode(EStatusCode code, const char* format, ...) noexcept
      __attribute__((format(printf, 3, 4)));

  EStatusCode GetCode() const noexcept { return code_; }
  bool Error() const noexcept { return code_ != eSuccess; }

  /// The message, "" when there is none; valid until the status changes.
  const char* GetErrorString() const noexcept { return message_.Buffer(); }

 private:
  EStatusCode code_ = eSuccess;
  KelString message_;
};

}  // namespace kelsdk
