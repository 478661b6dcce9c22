#include "bench/table.h"

#include <algorithm>
#include <cstdio>

namespace kelbench {

bool Table::Wants(const std::string& path) const {
  return words_.empty() || std::any_of(words_.begin(), words_.end(), [&](const std::string& word) {
           return path.find(word) != std::string::npos;
         });
}

void Table::Row(const std::string& path, const Workload& workload, unsigned int units,
                std::size_t unitBytes, double storedShare,
                const std::vector<Contender>& contenders) {
  if (!begun_) {
    std::puts(
        "| Path                      |  Points | Frames | Ours, us | Ours, GB/s | Baseline, us | "
        "Ratio | fread | HDF5 | HDF5 deflate | Size |\n"
        "|---------------------------|--------:|-------:|---------:|-----------:|-------------:|"
        "------:|------:|-----:|-------------:|-----:|");
    begun_ = true;
  }
  const std::vector<Timing> timings = Measure(contenders);
  const double ours = timings[0].seconds / units;
  const double baseline = timings[1].seconds / units;
  const std::string name = workload.name().empty() ? path : path + " " + workload.name();
  std::printf("| %-25s | %7u | %6u | %8.2f |", name.c_str(), workload.points(), workload.frames(),
              ours * 1e6);
  const auto number = [](bool known, int width, int digits, double value) {
    known ? std::printf(" %*.*f |", width, digits, value) : std::printf(" %*s |", width, "");
  };
  number(unitBytes != 0, 10, 2, double(unitBytes) / ours / 1e9);
  number(true, 12, 2, baseline * 1e6);
  number(true, 5, 2, timings[1].ratio);
  const struct {
    const char* name;
    int width;
  } peers[] = {{"fread", 5}, {"HDF5", 4}, {"HDF5 deflate", 12}};
  for (const auto& peer : peers) {
    const auto at = std::find_if(contenders.begin(), contenders.end(),
                                 [&](const Contender& one) { return one.name == peer.name; });
    const bool known = at != contenders.end();
    number(known, peer.width, 1, known ? timings[std::size_t(at - contenders.begin())].ratio : 0);
  }
  number(storedShare != 0, 4, 2, storedShare);
  std::puts("");
  std::fflush(stdout);
}

}  // namespace kelbench
