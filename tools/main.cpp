#include <csignal>
#include <cstdio>
#include <exception>
#include <string>

#include "tools/interrupt.h"
#include "tools/terminal.h"
#include "tools/verbs.h"

namespace kelcache {
namespace {

EExit Run(int argc, char** argv) {
  CLI::App app{
      "kelcache: inspects, checks, plays and converts animation caches.\n"
      "Formats: PC2 point caches (.pc2), NC multi-channel caches (.xml with data files) and, to "
      "read, Alembic archives (.abc).\n"
      "Frames are scene frames; samples count from 0.\n"
      "Exit status: 0 done, 1 a check found damage or differences, 2 wrong usage, 3 a file could "
      "not be opened, read or written."};
  app.name("kelcache");
  app.require_subcommand(1);
  app.failure_message([](const CLI::App*, const CLI::Error& error) {
    return std::string("kelcache: ") + error.what() + "; --help tells more\n";
  });
  Work work;
  AddInfo(app, &work);
  AddPlay(app, &work);
  AddDump(app, &work);
  AddMake(app, &work);
  AddVerify(app, &work);
  AddRecover(app, &work);
  AddConvert(app, &work);
  AddDiff(app, &work);
  AddRetime(app, &work);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? eDone : eUsage;
  }
  const EExit status = work();
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
