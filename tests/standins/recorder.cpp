#include "tests/standins/recorder.h"

namespace kelsdk::test {

Recorder& TheRecorder() {
  static Recorder recorder;
  return recorder;
}

std::string Recorder::Take() {
  std::string all;
  for (const std::string& call : calls) all += (all.empty() ? "" : "; ") + call;
  calls.clear();
  return all;
}

}  // namespace kelsdk::test
