#include "tools/view_page.h"

#include <algorithm>
#include <filesystem>

#include "tools/formats.h"
#include "tools/json.h"
#include "tools/numbers.h"

// The page without its data, as it stands in viewer/.
__asm__(
    ".pushsection .rodata\n"
    "kelcache_page_template:\n"
    ".incbin \"" KELCACHE_PAGE_TEMPLATE
    "\"\n"
    ".byte 0\n"
    ".popsection\n");
extern "C" const char kelcache_page_template[];

namespace kelcache {
namespace {

constexpr std::string_view kDataMark = "<!--DATA-->";

struct Template {
  std::string_view begin;
  std::string_view end;
};

Template PageTemplate() {
  const std::string_view page = kelcache_page_template;
  const std::size_t mark = page.find(kDataMark);
  return {page.substr(0, mark), page.substr(mark + kDataMark.size())};
}

// In as many digits as a plot can use; null for what is no number.
Json Rounded(double value) {
  const auto rounded = ParseNumber(RoundedText(value));
  return rounded ? Json(*rounded) : Json(nullptr);
}

// For each of the plan's moments that of the timeline at which a sample begins.
Json ClockJson(const Timeline& timeline, std::size_t clock,
               const std::vector<std::size_t>& moments) {
  Json begins = Json::array();
  std::optional<std::uint64_t> last;
  for (std::size_t i = 0; i < moments.size(); ++i) {
    const auto sample = timeline.SampleAt(clock, moments[i]);
    if (sample && sample != last) begins.push_back(i);
    last = sample;
  }
  return begins;
}

Json ObjectsJson(Scene& scene, const SceneFigures& figures, const PagePlan& plan) {
  Json objects = Json::array();
  for (std::size_t i = 0; i < scene.objects().size(); ++i) {
    const ObjectFigures& known = figures.objects[i];
    const bool hasFaces = plan.pointStride == 1;
    objects.push_back({{"name", scene.objects()[i].name},
                       {"clock", scene.timeline().ClockOf(i)},
                       {"points", (known.points + plan.pointStride - 1) / plan.pointStride},
                       {"triangles", hasFaces ? known.triangles : 0},
                       {"edges", hasFaces ? known.edges : 0}});
  }
  return objects;
}

// A moment stands for those left out before it.
Json FiguresJson(const SceneFigures& figures, const std::vector<std::size_t>& moments) {
  Json largest = Json::array();
  Json mean = Json::array();
  Json box = Json::array();
  Json elements = Json::array();
  Json notFinite = Json::array();
  std::size_t next = 0;
  for (const std::size_t moment : moments) {
    MomentFigures covered = figures.moments[moment];
    for (; next < moment; ++next) covered.Cover(figures.moments[next]);
    next = moment + 1;
    largest.push_back(Rounded(covered.largestMove));
    mean.push_back(Rounded(covered.meanMove));
    box.push_back(Rounded(covered.boxSize));
    elements.push_back(covered.elements);
    notFinite.push_back(covered.notFinite);
  }
  return {{"largestMove", largest},
          {"meanMove", mean},
          {"boxSize", box},
          {"elements", elements},
          {"notFinite", notFinite}};
}

// What a point that moves usually moves by: a few that fly off do not change it.
double TypicalMove(const SceneFigures& figures) {
  std::vector<double> moves;
  for (const MomentFigures& moment : figures.moments) {
    if (moment.meanOfMoving > 0) moves.push_back(moment.meanOfMoving);
  }
  if (moves.empty()) return 0;
  const auto middle = moves.begin() + std::ssize(moves) / 2;
  std::nth_element(moves.begin(), middle, moves.end());
  return *middle;
}

Json FlagsJson(const std::vector<PageFlag>& flags, const std::vector<std::size_t>& moments) {
  // A moment that was left out is seen in the next one.
  const auto shownAt = [&moments](std::size_t moment) {
    const auto next = std::lower_bound(moments.begin(), moments.end(), moment);
    return std::min(next - moments.begin(), std::ssize(moments) - 1);
  };
  Json list = Json::array();
  for (const PageFlag& flag : flags) {
    list.push_back(
        {{"first", shownAt(flag.first)}, {"last", shownAt(flag.last)}, {"text", flag.text}});
  }
  return list;
}

Json HeadJson(const CacheSummary& summary, Scene& scene, const SceneFigures& figures,
              const Grid& grid, double error, const PagePlan& plan,
              const std::vector<PageFlag>& flags, const std::vector<std::string>& notes) {
  const Timeline& timeline = scene.timeline();
  const std::vector<std::size_t> moments = plan.MomentsOf(timeline.Count());
  Json frames = Json::array();
  Json seconds = Json::array();
  for (const std::size_t moment : moments) {
    const Timeline::Point& point = timeline.At(moment);
    frames.push_back(OrNull(point.frame));
    seconds.push_back(point.seconds);
  }
  Json clocks = Json::array();
  for (std::size_t i = 0; i < timeline.ClockCount(); ++i) {
    clocks.push_back(ClockJson(timeline, i, moments));
  }
  return {{"file", std::filesystem::path(summary.file).filename().string()},
          {"format", RowOf(summary.format).name},
          {"rate", OrNull(summary.frameRate())},
          {"rateSource", summary.frameRateSource},
          {"low", {grid.low(0), grid.low(1), grid.low(2)}},
          {"step", {grid.step(0), grid.step(1), grid.step(2)}},
          {"error", error},
          {"pointStride", plan.pointStride},
          {"framesLeftOut", timeline.Count() - moments.size()},
          {"notes", notes},
          {"frames", frames},
          {"seconds", seconds},
          {"clocks", clocks},
          {"objects", ObjectsJson(scene, figures, plan)},
          {"figures", FiguresJson(figures, moments)},
          {"typicalMove", TypicalMove(figures)},
          {"flags", FlagsJson(flags, moments)}};
}

// As the content of a script element: nothing in it can end the element or begin a comment.
std::string ScriptText(const Json& json) {
  const std::string text = json.dump(-1, ' ', true, Json::error_handler_t::replace);
  std::string escaped;
  escaped.reserve(text.size());
  for (const char letter : text) letter == '<' ? escaped += "\\u003c" : escaped += letter;
  return escaped;
}

}  // namespace

std::vector<std::size_t> PagePlan::MomentsOf(std::size_t count) const {
  std::vector<std::size_t> moments;
  for (std::size_t moment = 0; moment < count; moment += frameStride) moments.push_back(moment);
  if (moments.back() + 1 != count) moments.push_back(count - 1);
  return moments;
}

std::string PageBegin(const CacheSummary& summary, Scene& scene, const SceneFigures& figures,
                      const Grid& grid, double error, const PagePlan& plan,
                      const std::vector<PageFlag>& flags, const std::vector<std::string>& notes) {
  const Json head = HeadJson(summary, scene, figures, grid, error, plan, flags, notes);
  return std::string(PageTemplate().begin) + "<script type=\"application/json\" id=\"head\">" +
         ScriptText(head) + "</script>\n";
}

std::string PageChunk(std::size_t first, std::size_t moments, std::uint64_t values,
                      const std::vector<std::uint8_t>& bytes) {
  return "<script type=\"application/x-kelcache-chunk\" data-first=\"" + std::to_string(first) +
         "\" data-moments=\"" + std::to_string(moments) + "\" data-values=\"" +
         std::to_string(values) + "\" data-bytes=\"" + std::to_string(bytes.size()) + "\">" +
         Base64(Deflated(bytes)) + "</script>\n";
}

std::string_view PageEnd() {
  return PageTemplate().end;
}

}  // namespace kelcache
