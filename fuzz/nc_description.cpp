// Any text as the description of an NC cache. What parses must come back the same from what it is
// written as.
#include <cstdlib>

#include "backends/nc/description.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using kelsdk::nc::Description;
  Description description;
  kelsdk::io::Error error;
  if (!ParseDescription(reinterpret_cast<const char*>(data), size, &description, error)) {
    if (!error) std::abort();  // refused without a reason
    return 0;
  }
  const std::string text = FormatDescription(description);
  Description again;
  if (!ParseDescription(text.data(), text.size(), &again, error)) std::abort();
  if (FormatDescription(again) != text) std::abort();
  return 0;
}
