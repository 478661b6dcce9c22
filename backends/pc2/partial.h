#pragma once

#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "backends/io/error.h"
#include "backends/io/input_file.h"
#include "backends/io/output_file.h"
#include "backends/pc2/header.h"

namespace kelsdk::pc2 {

// The files that stand beside a target. May throw std::bad_alloc.

/// The target in a name that a writer gives its partial file.
std::optional<std::string> TargetOfPartial(const std::string& name);

struct Partial {
  std::string path;
  struct timespec written;
};

bool IsLater(const struct timespec& time, const struct timespec& other);

/// The partial files of a target, whose path is followed already; the one written last is first.
std::vector<Partial> FindPartials(const std::string& target);

/// "shot.recovered.pc2" for "shot.pc2", later ones with a number.
std::string NameBeside(const std::string& target, const char* suffix, unsigned int attempt);

/// Reads the header of a partial file as its writer left it.
bool ReadWrittenHeader(const io::File& file, Header* header, io::Error& error);

/// The same, corrected to the whole samples that it holds; eCutShort when
/// there is none.
bool ReadPartialHeader(const io::File& file, std::uint64_t size, Header* header, io::Error& error);

}  // namespace kelsdk::pc2
