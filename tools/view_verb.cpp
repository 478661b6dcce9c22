#include <memory>

#include "tools/jobs.h"
#include "tools/terminal_watch.h"
#include "tools/verbs.h"
#include "tools/view.h"

namespace kelcache {
namespace {

struct Typed : ViewOptions {
  std::string file;
  bool json = false;
};

JobResult ViewForReport(const Typed& options) {
  TerminalWatch watch(false);
  const Viewed viewed = View(options.file, options, watch);
  JobResult result;
  result.status = viewed.missing ? eFound : eDone;
  result.notes = watch.notes();
  result.report = {{"target", viewed.page},
                   {"largestError", viewed.largestError},
                   {"counts",
                    {{"frames", viewed.moments},
                     {"objects", viewed.objects},
                     {"points", viewed.points},
                     {"findings", viewed.findings},
                     {"bytes", viewed.bytes}}}};
  return result;
}

EExit ViewTyped(const Typed& options) {
  CatchInterrupts();
  if (options.json) {
    return Report("view", options.file, [&] { return ViewForReport(options); });
  }
  TerminalWatch watch(true);
  const Viewed viewed = View(options.file, options, watch);
  PrintLine(stdout, viewed.page + ": " + std::to_string(viewed.moments) + " frames, " +
                        (viewed.objects == 1 ? "" : std::to_string(viewed.objects) + " objects, ") +
                        std::to_string(viewed.points) + " points within " +
                        RoundedText(viewed.largestError) + ", " + SizeText(viewed.bytes) +
                        (viewed.findings == 0 ? ""
                                              : "; check finds " + std::to_string(viewed.findings) +
                                                    (viewed.findings == 1 ? " thing" : " things")));
  return viewed.missing ? eFound : eDone;
}

}  // namespace

void AddView(CLI::App& app, Work* work) {
  const auto options = std::make_shared<Typed>();
  CLI::App* verb = app.add_subcommand(
      "view",
      "Writes a page that plays a cache in a browser. It is one file that needs no network. "
      "Positions have 16 bits of the animation's box; the page says how far that moves them. An "
      "Alembic mesh has its own faces.");
  verb->footer(
      "Examples:\n  kelcache view shot.pc2 --mesh body.obj\n"
      "  kelcache view set.abc --all -o set.html\n"
      "  kelcache view sim.xml --channel 0 --channel 3 --max-size 20M");
  verb->add_option("FILE", options->file, "The cache")->required();
  verb->add_option("-o,--output", options->page,
                   "The page to write (default: FILE with .html in place of its extension)")
      ->type_name("PAGE.html");
  verb->add_option("--channel", options->channels,
                   "Channel number or name, again for several (default: the first that holds "
                   "positions)")
      ->allow_extra_args(false);
  verb->add_flag("--all", options->all, "All channels that hold positions")->excludes("--channel");
  verb->add_option("--mesh", options->mesh,
                   "Faces for a cache that has none, of a mesh with as many points: FILE.obj, or "
                   "ARCHIVE.abc, followed by :/object where it holds several")
      ->type_name("FILE");
  AddRangeOptions(verb, &options->range);
  verb->add_option("--rate", options->rate, "Frames per second that frames are counted at")
      ->type_name("FPS")
      ->check(FrameRate());
  verb->add_option("--max-size", options->maxSize,
                   "Keep the page within so many bytes by taking fewer frames, then fewer points; "
                   "what was left out is said (default 64M)")
      ->type_name("SIZE")
      ->transform(ByteSize());
  verb->add_flag("--force", options->force, "Replace a page that is there");
  AddAsOption(verb, &options->asName);
  AddJsonOption(verb, &options->json);
  verb->callback([=] { *work = [=] { return ViewTyped(*options); }; });
}

}  // namespace kelcache
