#include <fstream>
#include <memory>
#include <sstream>

#include "tools/help.h"
#include "tools/help_tables.h"
#include "tools/verbs.h"

namespace kelcache {
namespace {

// Text in which troff finds no commands of its own.
std::string Escaped(const std::string& text) {
  std::string escaped;
  for (const char letter : text) {
    if (letter == '\\') {
      escaped += "\\e";
    } else if (letter == '-') {
      escaped += "\\-";
    } else {
      escaped += letter;
    }
  }
  if (escaped.starts_with('.') || escaped.starts_with('\'')) escaped.insert(0, "\\&");
  return escaped;
}

void AppendRows(std::string* page, const std::string& heading, const std::vector<HelpRow>& rows) {
  if (rows.empty()) return;
  *page += ".SH " + Escaped(heading) + '\n';
  for (const HelpRow& row : rows) {
    *page += ".TP\n.B " + Escaped(row.name) + '\n' + Escaped(row.text) + '\n';
  }
}

// A help's last lines: paragraphs, and examples that stand as they are.
void AppendFooter(std::string* page, const std::string& footer) {
  *page += ".SH NOTES\n";
  bool isExample = false;
  std::istringstream lines(footer);
  for (std::string line; std::getline(lines, line);) {
    const bool indented = line.starts_with(' ');
    if (indented != isExample) *page += indented ? ".PP\n.nf\n" : ".fi\n";
    isExample = indented;
    if (!indented) *page += ".PP\n";
    *page += Escaped(line) + '\n';
  }
  if (isExample) *page += ".fi\n";
}

std::string PageOf(const CLI::App& app, const CLI::App* verb) {
  const CLI::App& one = verb != nullptr ? *verb : app;
  const std::string name =
      verb != nullptr ? app.get_name() + '-' + verb->get_name() : app.get_name();
  const std::string called = verb != nullptr ? app.get_name() + ' ' + verb->get_name() : name;
  std::string page = ".TH " + CLI::detail::to_lower(name) + " 1 \"\" \"" + app.version() +
                     "\" \"User Commands\"\n.SH NAME\n" + Escaped(name) + " \\- " +
                     Escaped(FirstSentence(one.get_description())) + "\n.SH SYNOPSIS\n" +
                     Escaped(UsageOf(one, called)) + "\n.SH DESCRIPTION\n" +
                     Escaped(one.get_description()) + '\n';
  std::vector<HelpRow> verbs;
  for (const CLI::App* other : Verbs(one)) {
    verbs.push_back({other->get_name(), FirstSentence(other->get_description())});
  }
  AppendRows(&page, "VERBS", verbs);
  AppendRows(&page, "ARGUMENTS", PositionalRowsOf(one));
  AppendRows(&page, "OPTIONS", RowsOf(AllOptionsOf(one)));
  AppendFooter(&page, one.get_footer());
  page += ".SH SEE ALSO\n";
  if (verb != nullptr) return page + ".BR kelcache (1)\n";
  std::string others;
  for (const CLI::App* other : Verbs(app)) {
    others +=
        (others.empty() ? "" : ",\n") + (".BR " + Escaped(name + '-' + other->get_name())) + " (1)";
  }
  return page + others + '\n';
}

void Write(const std::string& folder, const std::string& name, const std::string& page) {
  const std::string path = folder + '/' + name + ".1";
  std::ofstream out(path, std::ios::binary);
  out << page;
  if (!out.flush()) throw Failed(path, "could not be written");
}

}  // namespace

void AddManual(CLI::App& app, Work* work) {
  const auto name = std::make_shared<std::string>();
  const auto folder = std::make_shared<std::string>();
  CLI::App* verb = app.add_subcommand("manual", "Prints a manual page for man(1).");
  verb->group("");  // for packages
  verb->add_option("VERB", *name, "The verb");
  verb->add_option("--into", *folder, "Write all pages into this folder");
  verb->callback([=, &app] {
    *work = [=, &app] {
      if (folder->empty()) {
        const CLI::App* const one = name->empty() ? nullptr : FindVerb(app, *name);
        std::fputs(PageOf(app, one).c_str(), stdout);
        return eDone;
      }
      Write(*folder, app.get_name(), PageOf(app, nullptr));
      for (const CLI::App* one : Verbs(app)) {
        Write(*folder, app.get_name() + '-' + one->get_name(), PageOf(app, one));
      }
      return eDone;
    };
  });
}

}  // namespace kelcache
