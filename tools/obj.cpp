#include "tools/obj.h"

#include <charconv>
#include <fstream>
#include <limits>
#include <numeric>
#include <string_view>

#include "tools/readable.h"
#include "tools/tool_error.h"

namespace kelcache {
namespace {

constexpr std::string_view kBlank = " \t\r";

// Takes the first word off a line.
std::string_view TakeWord(std::string_view* line) {
  const std::size_t begin = std::min(line->find_first_not_of(kBlank), line->size());
  const std::size_t end = std::min(line->find_first_of(kBlank, begin), line->size());
  const std::string_view word = line->substr(begin, end - begin);
  line->remove_prefix(end);
  return word;
}

// "7", "7/1", "7//3" or "-1", which counts from the last point so far, as a number from 0.
bool PointOf(std::string_view word, std::uint64_t points, std::uint32_t* index) {
  word = word.substr(0, word.find('/'));
  std::int64_t number = 0;
  const auto parsed = std::from_chars(word.data(), word.data() + word.size(), number);
  if (parsed.ec != std::errc() || parsed.ptr != word.data() + word.size()) return false;
  const std::int64_t place = number < 0 ? static_cast<std::int64_t>(points) + number : number - 1;
  if (number == 0 || place < 0 || place > std::numeric_limits<std::uint32_t>::max()) return false;
  *index = static_cast<std::uint32_t>(place);
  return true;
}

bool TakeFace(std::string_view line, ObjMesh* mesh) {
  std::uint32_t count = 0;
  for (std::string_view word = TakeWord(&line); !word.empty(); word = TakeWord(&line)) {
    std::uint32_t index = 0;
    if (!PointOf(word, mesh->points, &index)) return false;
    mesh->faces.indices.push_back(index);
    ++count;
  }
  mesh->faces.counts.push_back(count);
  return count != 0;
}

// A line, with those that it goes on in after a backslash.
bool ReadLine(std::istream& in, std::string* line, std::uint64_t* number) {
  line->clear();
  for (std::string part; std::getline(in, part);) {
    ++*number;
    if (part.ends_with('\r')) part.pop_back();
    *line += part;
    if (!line->ends_with('\\')) return true;
    line->back() = ' ';
  }
  return !line->empty();
}

}  // namespace

bool Faces::Fit(std::uint64_t points) const {
  const std::uint64_t wanted = std::accumulate(counts.begin(), counts.end(), std::uint64_t{0});
  if (wanted != indices.size()) return false;
  for (const std::uint32_t index : indices) {
    if (index >= points) return false;
  }
  return true;
}

ObjMesh ReadObj(const std::string& file, Watch& watch) {
  ExpectReadable(file);
  std::ifstream in(file, std::ios::binary);
  ObjMesh mesh;
  std::uint64_t number = 0;
  for (std::string line; ReadLine(in, &line, &number);) {
    if (number % 65536 == 0) watch.ThrowIfInterrupted();
    std::string_view rest = line;
    const std::string_view word = TakeWord(&rest);
    if (word == "v") ++mesh.points;
    if (word == "f" && !TakeFace(rest, &mesh)) {
      throw Failed(file, "line " + std::to_string(number) + " is no face: " + line.substr(0, 60));
    }
  }
  if (in.bad()) throw Failed(file, "cannot be read");
  if (mesh.faces.IsEmpty()) throw Failed(file, "holds no faces");
  if (!mesh.faces.Fit(mesh.points)) throw Failed(file, "has faces on points that it does not have");
  return mesh;
}

}  // namespace kelcache
