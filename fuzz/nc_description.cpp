// Any text as the description of an NC cache. What parses must come back the same from what it is
// written as.
#include "backends/nc/description.h"
#include "fuzz/support.h"

using kelsdk::fuzz::Require;
using kelsdk::nc::Description;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Description description;
  kelsdk::io::Error error;
  if (!ParseDescription(reinterpret_cast<const char*>(data), size, &description, error)) {
    Require(bool(error));  // a reason for refusing it
    return 0;
  }
  const std::string text = FormatDescription(description);
  Description again;
  Require(ParseDescription(text.data(), text.size(), &again, error));
  Require(FormatDescription(again) == text);
  return 0;
}
