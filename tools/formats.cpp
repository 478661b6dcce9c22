#include "tools/formats.h"

#include <algorithm>
#include <filesystem>

#include "tools/numbers.h"
#include "tools/tool_error.h"

namespace kelcache {
namespace {

const FormatRow* const kRows[] = {&kPC2Row, &kNCRow, &kAlembicRow};

// A format without a stored rate: that of the first channel that moves at even steps.
void DeriveFrameRate(CacheSummary* summary) {
  if (summary->rate.IsValid()) return;
  for (const ChannelSummary& channel : summary->channels) {
    if (channel.samples < 2 || channel.interval.value_or(0) <= 0) continue;
    summary->rate = kelsdk::KelFrameRate::FromComputed(1 / *channel.interval);
    if (!summary->rate.IsValid()) continue;
    summary->frameRateSource = "derived";
    return;
  }
}

}  // namespace

bool IsCacheName(const std::string& file) {
  const std::string written = std::filesystem::path(file).extension().string();
  return std::any_of(std::begin(kRows), std::end(kRows), [&](const FormatRow* row) {
    return (row->ownsExtension ? written : Lowered(written)) == row->extension &&
           (row->isOne == nullptr || row->isOne(file));
  });
}

bool IsWritersFolder(const std::string& name) {
  return std::any_of(std::begin(kRows), std::end(kRows), [&](const FormatRow* row) {
    return row->isWritersFolder != nullptr && row->isWritersFolder(name);
  });
}

const FormatRow& RowOf(Format format) {
  const auto row = std::find_if(std::begin(kRows), std::end(kRows),
                                [&](const FormatRow* one) { return one->format == format; });
  if (row == std::end(kRows)) throw ToolError(eUsage, "the format is unknown");
  return **row;
}

std::vector<const FormatRow*> AllRows() {
  return {std::begin(kRows), std::end(kRows)};
}

std::vector<std::string> FormatNames() {
  std::vector<std::string> names;
  for (const FormatRow* row : kRows) names.emplace_back(row->name);
  return names;
}

Format FormatOf(const std::string& file, const std::string& asName) {
  const std::string written = std::filesystem::path(file).extension().string();
  const std::string extension = Lowered(written);
  for (const FormatRow* row : kRows) {
    if (asName.empty() ? extension != row->extension : asName != row->name) continue;
    if (!row->ownsExtension || written == row->extension) return row->format;
    throw ToolError(eUsage, file + ": a cache of this format is named BASE" + row->extension);
  }
  if (extension == ".ncx" || extension == ".ncc") {
    throw ToolError(eUsage, file + ": is a data file; name its description (.xml)");
  }
  throw ToolError(eUsage, file + ": the extension tells no format; use --as pc2|nc|alembic");
}

void ExpectWritten(Format format, const std::string& file) {
  if (const char* why = RowOf(format).whyNotWritten) throw ToolError(eUsage, file + ": " + why);
}

CacheSummary Summarise(CacheFile& cache, const kelsdk::KelFrameRate& rate) {
  CacheSummary summary;
  summary.file = cache.file();
  summary.format = cache.format();
  summary.fileSize = SizeOfFile(cache.file());
  summary.frameRateSource = "none";
  if (rate.IsValid()) {
    summary.rate = rate;
    summary.frameRateSource = "given";
  }
  RowOf(cache.format()).summarise(cache, &summary);
  DeriveFrameRate(&summary);
  return summary;
}

void VerifyReport::Line(void* report, const char* line) {
  static_cast<const VerifyReport*>(report)->say_(line);
}

bool VerifyReport::Proceed(void* report, unsigned long long done, unsigned long long total) {
  auto& verify = *static_cast<VerifyReport*>(report);
  try {
    if (!verify.begun_) verify.watch_.Begin(total, verify.file_);
    verify.begun_ = true;
    verify.watch_.Show(done);
    verify.watch_.ThrowIfInterrupted();
    return true;
  } catch (...) {
    verify.thrown_ = std::current_exception();
    return false;
  }
}

bool FollowReport::Look(void* report, const kelsdk::CacheProgress& progress) {
  auto& follow = *static_cast<FollowReport*>(report);
  try {
    follow.look_(progress);
    return true;
  } catch (...) {
    follow.thrown_ = std::current_exception();
    return false;
  }
}

void FollowReport::Line(void* report, const char* line) {
  static_cast<const FollowReport*>(report)->say_(line);
}

void FollowReport::Finish() const {
  if (thrown_) std::rethrow_exception(thrown_);
}

void VerifyReport::Finish() const {
  if (thrown_ != nullptr) std::rethrow_exception(thrown_);
}

void SayLine(void* say, const char* line) {
  (*static_cast<const Say*>(say))(line);
}

bool ListLeftovers(ListFunction list, const std::string& folder, const LeftoverFunction& told,
                   const Say& say) {
  const struct Context {
    const LeftoverFunction& told;
    const Say& say;
  } context = {told, say};
  const auto tell = [](void* to, const kelsdk::CacheLeftover& leftover) {
    static_cast<const Context*>(to)->told(leftover);
  };
  const auto report = [](void* to, const char* line) {
    static_cast<const Context*>(to)->say(line);
  };
  return list(folder.c_str(), tell, report, const_cast<Context*>(&context));
}

std::uint64_t SizeOfFile(const std::string& path) {
  std::error_code unknown;
  const auto size = std::filesystem::file_size(path, unknown);
  return unknown ? 0 : size;
}

}  // namespace kelcache
