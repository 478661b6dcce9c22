#include "tools/leftovers.h"

namespace kelcache {
void NoteLeftovers(const std::string& file, Format format, Watch& watch) {
  const FormatRow& row = RowOf(format);
  const unsigned int count = row.leftovers != nullptr ? row.leftovers(file) : 0;
  if (count == 0) return;
  watch.Note(file + ": " + (count == 1 ? "a writer" : "writers") +
             " died and left a part of a cache beside it; kelcache recover " + file + " saves it");
}

}  // namespace kelcache
