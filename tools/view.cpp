#include "tools/view.h"

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "tools/check.h"
#include "tools/page_file.h"
#include "tools/readable.h"
#include "tools/target.h"
#include "tools/tool_error.h"
#include "tools/view_page.h"

namespace kelcache {
namespace {

constexpr std::size_t kFewestMoments = 24;  // are kept as long as points can be left out instead
constexpr std::size_t kMostFlags = 1000;
constexpr std::uint64_t kChunkBytes = std::uint64_t{6} << 20;
constexpr std::uint64_t kMostPageMemory = std::uint64_t{1} << 30;  // of positions, in the browser
constexpr std::uint64_t kBufferBytes = 16;                         // a point takes to be drawn

std::string PageOf(const std::string& file, const ViewOptions& options) {
  if (!options.page.empty()) {
    const std::string extension = std::filesystem::path(options.page).extension().string();
    if (extension != ".html" && extension != ".htm") {
      throw ToolError(eUsage, options.page + ": a page's name ends in .html");
    }
    return options.page;
  }
  std::filesystem::path page(file);
  page.replace_extension(".html");
  return page.string();
}

// How far an attempt came before the page was too large.
struct Attempt {
  bool fits = true;
  std::size_t moments = 0;  // packed, or all
  std::uint64_t fixedBytes = 0;
  std::uint64_t bytes = 0;
  std::uint64_t memory = 0;
};

class PageMaker {
 public:
  PageMaker(Source& source, Scene& scene, const ViewOptions& options, const std::string& page,
            Watch& watch)
      : source_(source),
        scene_(scene),
        options_(options),
        page_(page),
        file_(page),
        watch_(watch),
        notes_(scene.notes()) {
    for (const std::string& note : notes_) watch_.Note(cache() + ": " + note);
    watch_.Begin(scene.timeline().Count(), cache());
    figures_ = Measure(source, scene, watch);
    watch_.End();
    error_ = Grid(figures_.box).largestError() + figures_.rounding;
    NoteMisfits();
    FindFlags();
  }

  void NoteOnPage(const std::string& note) { notes_.push_back(note); }

  Viewed Make() {
    PagePlan plan;
    for (;;) {
      const Attempt attempt = TryPlan(plan);
      if (attempt.fits) return ResultOf(plan, attempt);
      plan = Smaller(plan, attempt);
    }
  }

 private:
  const std::string& cache() const { return source_.summary().file; }

  void NoteMisfits() {
    for (const SceneObject& object : scene_.objects()) {
      if (!object.faces || !object.faces->misfit()) continue;
      const std::string line = object.name + ": has faces that do not fit its points";
      notes_.push_back(line);
      watch_.Note(cache() + ": " + line);
    }
  }

  // What `check` finds in the channels that are shown.
  void FindFlags() {
    CheckOptions check;
    check.range = options_.range;
    for (const SceneObject& object : scene_.objects()) {
      Checked checked;
      CheckChannel(source_, *object.channel, check, watch_, &checked);
      findings_ += checked.findings.size();
      const std::string name = scene_.objects().size() == 1 ? "" : object.name;
      for (const Finding& finding : checked.findings) {
        if (flags_.size() == kMostFlags) break;
        flags_.push_back({scene_.timeline().Nearest(finding.first->ticks),
                          scene_.timeline().Nearest(finding.last->ticks), finding.Line(name)});
      }
    }
    if (findings_ > flags_.size()) {
      notes_.push_back("check finds " + std::to_string(findings_) + " things, of which the first " +
                       std::to_string(kMostFlags) + " are marked");
    }
  }

  Attempt TryPlan(const PagePlan& plan) {
    const Grid grid(figures_.box);
    const std::vector<std::size_t> moments = plan.MomentsOf(scene_.timeline().Count());
    std::vector<std::string> notes = notes_;
    for (const std::string& line : LeftOut(plan)) notes.push_back(line);
    file_.Restart();
    file_.Write(PageBegin(source_.summary(), scene_, figures_, grid, error_, plan, flags_, notes));
    Attempt attempt;
    attempt.memory = PointsOf(plan) * kBufferBytes;
    attempt.fixedBytes = file_.size() + PageEnd().size();
    ChunkPacker packer(grid, scene_.objects().size(), plan.pointStride);
    lastFaces_.assign(scene_.objects().size(), {});
    watch_.Begin(moments.size(), page_);
    while (attempt.fits && attempt.moments < moments.size()) {
      const std::size_t first = attempt.moments;
      packer.Begin();
      do {
        watch_.ThrowIfInterrupted();
        Pack(moments, attempt.moments, plan, &packer);
        watch_.Show(++attempt.moments);
      } while (attempt.moments < moments.size() && packer.bytes().size() < kChunkBytes);
      file_.Write(PageChunk(first, attempt.moments - first, packer.values(), packer.bytes()));
      attempt.memory += packer.values() * sizeof(std::uint16_t);
      attempt.bytes = file_.size() + PageEnd().size();
      attempt.fits = attempt.bytes <= options_.maxSize && attempt.memory <= kMostPageMemory;
    }
    watch_.End();
    if (!attempt.fits) return attempt;
    file_.Write(PageEnd());
    file_.Finish();
    for (const std::string& line : LeftOut(plan)) watch_.Note(page_ + ": " + line);
    return attempt;
  }

  void Pack(const std::vector<std::size_t>& moments, std::size_t place, const PagePlan& plan,
            ChunkPacker* packer) {
    const auto before = place == 0 ? std::nullopt : std::optional(moments[place - 1]);
    for (std::size_t i = 0; i < scene_.objects().size(); ++i) {
      if (!scene_.Changes(i, before, moments[place])) continue;
      SceneObject& object = scene_.objects()[i];
      const Moment moment = *scene_.CurrentAt(i, moments[place]);
      const Array array = source_.Fetch(*object.channel, moment);
      const float* const points = AsFloats(array, &floats_);
      const Faces* changed = nullptr;
      if (object.faces && plan.pointStride == 1) {
        const Faces& faces = object.faces->At(moment, array.elements);
        if (faces != lastFaces_[i]) {
          lastFaces_[i] = faces;
          changed = &lastFaces_[i];
        }
      }
      packer->Add(i, points, array.elements, changed);
    }
  }

  PagePlan Smaller(const PagePlan& plan, const Attempt& attempt) const {
    const std::size_t count = scene_.timeline().Count();
    const std::size_t kept = plan.MomentsOf(count).size();
    // Samples further apart pack less well.
    constexpr double kSafety = 0.92;
    const double bytes =
        double(std::max(attempt.bytes, attempt.fixedBytes + 1) - attempt.fixedBytes);
    const double room = double(options_.maxSize) - double(attempt.fixedBytes);
    const double bySize = double(attempt.moments) * room / bytes;
    const double byMemory = double(attempt.moments) * double(kMostPageMemory) /
                            double(std::max<std::uint64_t>(attempt.memory, 1));
    const double fitting = std::max(0.01, std::min(bySize, byMemory) * kSafety);
    PagePlan smaller = plan;
    const std::size_t fewest = std::min(count, kFewestMoments);
    const double wanted = std::max(fitting, double(fewest));
    const auto stride = static_cast<std::size_t>(std::ceil(double(count) / wanted));
    if (plan.frameStride < std::max<std::size_t>(1, count / fewest)) {
      smaller.frameStride = std::min(std::max(stride, plan.frameStride + 1),
                                     std::max<std::size_t>(1, count / fewest));
    }
    if (smaller.frameStride != plan.frameStride) return smaller;
    const double share = std::max(1.0, double(kept) / fitting);
    if (room <= 0 || plan.pointStride > MostPoints()) {
      throw Failed(page_, "does not fit --max-size: the page without positions takes " +
                              std::to_string(attempt.fixedBytes) + " bytes");
    }
    const double points = std::ceil(double(plan.pointStride) * share);
    smaller.pointStride = static_cast<unsigned int>(
        std::min(std::max(points, plan.pointStride + 1.0), double(MostPoints()) + 1));
    return smaller;
  }

  // Of all objects at their largest, on the page.
  std::uint64_t PointsOf(const PagePlan& plan) const {
    std::uint64_t points = 0;
    for (const ObjectFigures& object : figures_.objects) {
      points += (std::uint64_t{object.points} + plan.pointStride - 1) / plan.pointStride;
    }
    return points;
  }

  unsigned int MostPoints() const {
    unsigned int most = 1;
    for (const ObjectFigures& object : figures_.objects) most = std::max(most, object.points);
    return most;
  }

  std::vector<std::string> LeftOut(const PagePlan& plan) const {
    std::vector<std::string> lines;
    const std::size_t count = scene_.timeline().Count();
    const std::size_t kept = plan.MomentsOf(count).size();
    if (kept != count) {
      lines.push_back("frames left out to keep the page small: " + std::to_string(kept) + " of " +
                      std::to_string(count) + " are here, one in " +
                      std::to_string(plan.frameStride));
    }
    if (plan.pointStride > 1) {
      bool hadFaces = false;
      for (const ObjectFigures& object : figures_.objects) hadFaces |= object.edges != 0;
      lines.push_back("points left out to keep the page small: one in " +
                      std::to_string(plan.pointStride) + " is here" +
                      (hadFaces ? ", without surfaces" : ""));
    }
    return lines;
  }

  Viewed ResultOf(const PagePlan& plan, const Attempt& attempt) const {
    Viewed viewed;
    viewed.page = page_;
    viewed.bytes = attempt.bytes;
    viewed.moments = attempt.moments;
    viewed.objects = scene_.objects().size();
    viewed.points = PointsOf(plan);
    viewed.largestError = error_;
    viewed.findings = findings_;
    return viewed;
  }

  Source& source_;
  Scene& scene_;
  const ViewOptions& options_;
  const std::string& page_;
  PageFile file_;
  Watch& watch_;
  std::vector<std::string> notes_;
  SceneFigures figures_;
  double error_ = 0;
  std::vector<PageFlag> flags_;
  std::size_t findings_ = 0;
  std::vector<Faces> lastFaces_;
  std::vector<float> floats_;
};

}  // namespace

Viewed View(const std::string& file, const ViewOptions& options, Watch& watch) {
  const Format format = FormatOf(file, options.asName);
  const std::string page = PageOf(file, options);
  ExpectReadable(file);
  ExpectFree(page, options.force);
  Source source(file, format, options.rate);
  const bool missing = NoteWhatIsMissing(source, options.range, watch);
  Scene scene(source, options, watch);
  PageMaker maker(source, scene, options, page, watch);
  if (!source.summary().complete) maker.NoteOnPage(source.summary().WhatIsMissing());
  Viewed viewed = maker.Make();
  viewed.missing = missing;
  return viewed;
}

}  // namespace kelcache
