// Prints one table of every path through the object, for caches of several sizes, against bare
// system calls on the same bytes in the same run and against other ways of keeping such data.
//
//   kelcache_bench [WORD...] [FILE.pc2...]
//
// Words select rows by their path ("fetch", "ncc"). For each PC2 file, the compact form of its
// samples is measured as well.
#include "bench/paths.h"

namespace kelbench {
namespace {

void Run(const std::vector<std::string>& words, const std::vector<std::string>& files) {
  Table table(words);
  for (const unsigned int points : {100U, 10'000U, 1'000'000U}) {
    for (const unsigned int frames : {10U, 1'000U, 10'000U, 100'000U}) {
      if (frames == 10'000 && points != 100) continue;  // tells nothing that its neighbours do not
      Case in(Workload::Cloth(points, frames));
      MeasurePC2(table, in);
      MeasureNC(table, in);
      MeasureAlembic(table, in);
      MeasureConversions(table, in);
    }
  }
  for (const unsigned int points : {100U, 10'000U}) MeasureChannels(table, points);
  MeasureMeshes(table, 8);
  for (const unsigned int points : {8U, 100U}) MeasureScene(table, points);
  MeasureCold(table);
  for (const std::string& file : files) {
    Case in(Workload::FromPC2(file));
    MeasureCompact(table, in);
  }
}

}  // namespace
}  // namespace kelbench

int main(int argumentCount, char** arguments) {
  std::vector<std::string> words;
  std::vector<std::string> files;
  for (int i = 1; i < argumentCount; ++i) {
    const std::string argument = arguments[i];
    (argument.ends_with(".pc2") ? files : words).push_back(argument);
  }
  kelbench::Run(words, files);
}
