#include <csignal>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>

#include "tools/failure.h"
#include "tools/formats.h"
#include "tools/help.h"
#include "tools/interrupt.h"
#include "tools/terminal.h"
#include "tools/verbs.h"

namespace kelcache {
namespace {

constexpr char kDescription[] =
    "Inspects, checks, plays and converts animation caches: PC2 point caches (.pc2), NC "
    "multi-channel caches (.xml with data files) and, to read, Alembic archives (.abc). Frames are "
    "scene frames; samples count from 0. kelcache VERB --help explains a verb.";

constexpr char kFooter[] =
    "Examples:\n"
    "  kelcache info shot.pc2\n"
    "  kelcache convert shot.pc2 shot.xml --rate 24\n"
    "\n"
    "Exit status: 0 done, 1 a check found damage or differences, 2 wrong usage, 3 a file could not "
    "be opened, read or written, 128 + N ended by signal N. Of several files the highest.";

void AddVerbs(CLI::App& app, Work* work) {
  AddInfo(app, work);
  AddPlay(app, work);
  AddDump(app, work);
  AddView(app, work);
  AddCheck(app, work);
  AddVerify(app, work);
  AddDiff(app, work);
  AddConvert(app, work);
  AddRetime(app, work);
  AddTrim(app, work);
  AddExtract(app, work);
  AddMerge(app, work);
  AddResample(app, work);
  AddTransform(app, work);
  AddMake(app, work);
  AddRecover(app, work);
  AddClean(app, work);
  AddReport(app, work);
  AddCompletion(app, work);
  AddManual(app, work);
  AddHelp(app, work);
}

void PrintVersion(const std::string& version) {
  PrintLine(stdout, version);
  for (const FormatRow* row : AllRows()) {
    PrintLine(stdout, std::string(row->name) + ": " + row->forms() + "; " +
                          (row->whyNotWritten == nullptr ? "read and written" : "read"));
  }
}

// What the command line asks for; throws eUsage for one that makes no sense.
Work Parse(CLI::App& app, int argc, char** argv, Work* work) {
  // The parser would only say that a verb is missing.
  const std::string first = argv[1];
  if (!first.starts_with('-')) {
    FindVerb(app, first);
  } else if (app.get_option_no_throw(first) == nullptr) {
    throw ToolError(eUsage, first + ": there is no such option; kelcache --help tells more");
  }
  const auto print = [](const std::string& text) {
    return [text] {
      std::fputs(text.c_str(), stdout);
      return eDone;
    };
  };
  try {
    app.parse(argc, argv);
    return *work;
  } catch (const CLI::CallForHelp&) {
    return print(app.help());
  } catch (const CLI::CallForVersion& version) {
    return [text = std::string(version.what())] {
      PrintVersion(text);
      return eDone;
    };
  } catch (const CLI::ParseError& error) {
    std::string help = app.get_name();
    for (const CLI::App* verb : app.get_subcommands()) help += ' ' + verb->get_name();
    throw ToolError(eUsage, error.what() + ("; " + help) + " --help tells more");
  }
}

EExit Run(int argc, char** argv) {
  CLI::App app(kDescription, "kelcache");
  app.formatter(std::make_shared<HelpFormatter>(stdout));
  app.footer(kFooter);
  app.require_subcommand(1);
  app.set_help_flag("-h,--help", "Print this help");
  app.set_version_flag("--version", "kelcache " KELCACHE_VERSION,
                       "Print the version and the formats built in");
  Work work;
  AddVerbs(app, &work);
  if (argc < 2) {
    std::fputs(HelpOn(app, stderr).c_str(), stderr);
    return eUsage;
  }
  const EExit status = Parse(app, argc, argv, &work)();
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
    throw ToolError(eFailed, "standard output could not be written");
  }
  return status;
}

}  // namespace
}  // namespace kelcache

int main(int argc, char** argv) {
  // A file that outgrows the limit set for it is then an error like any other, which is told and
  // cleaned up after.
  std::signal(SIGXFSZ, SIG_IGN);
  kelcache::EndOnInterrupts();
  try {
    return kelcache::Run(argc, argv);
  } catch (const std::exception&) {
    const kelcache::Failure failure = kelcache::CurrentFailure();
    kelcache::PrintError(failure.line);
    return failure.status;
  }
}
