#include "tools/completion.h"

#include <map>
#include <memory>

#include "tools/help_tables.h"
#include "tools/verbs.h"

namespace kelcache {
namespace {

using CLI::detail::join;

std::vector<std::string> VerbNames(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::App* verb : Verbs(app)) names.push_back(verb->get_name());
  return names;
}

// What stands in place of a verb's arguments: the words that it is one of, else files.
std::vector<std::string> ArgumentChoices(const CLI::App& app, const CLI::App& verb) {
  if (verb.get_name() == "help") return VerbNames(app);
  const auto positionals = PositionalsOf(verb);
  return positionals.empty() ? std::vector<std::string>() : ChoicesOf(*positionals.front());
}

// Text that shells' descriptions can hold: none of the signs that mean something there.
std::string Plain(const std::string& text) {
  std::string plain;
  for (const char letter : FirstSentence(text)) {
    if (std::string_view("'\"[]:\\`$").find(letter) == std::string_view::npos) plain += letter;
  }
  return plain;
}

}  // namespace

// What is neither an option nor one of some words is completed as a file by the shell itself.
std::string BashCompletion(const CLI::App& app) {
  std::string script =
      "# Completion of kelcache for bash, made from its own tables.\n"
      "_kelcache() {\n"
      "  local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]} words=\n"
      "  COMPREPLY=()\n"
      "  if [ \"$COMP_CWORD\" = 1 ]; then\n"
      "    words='" +
      join(VerbNames(app), " ") +
      " --help --version'\n"
      "    COMPREPLY=($(compgen -W \"$words\" -- \"$word\"))\n"
      "    return\n"
      "  fi\n"
      "  case ${COMP_WORDS[1]} in\n";
  for (const CLI::App* verb : Verbs(app)) {
    std::vector<std::string> spellings;
    std::string values;
    for (const CLI::Option* option : AllOptionsOf(*verb)) {
      const std::vector<std::string> own = SpellingsOf(*option);
      spellings.insert(spellings.end(), own.begin(), own.end());
      const std::vector<std::string> choices = ChoicesOf(*option);
      if (choices.empty()) continue;
      values += "        " + join(own, "|") + ") COMPREPLY=($(compgen -W '" + join(choices, " ") +
                "' -- \"$word\")); return ;;\n";
    }
    script += "    " + verb->get_name() + ")\n";
    if (!values.empty()) script += "      case $before in\n" + values + "      esac\n";
    script += "      words='" + join(spellings, " ") + "'\n";
    const std::vector<std::string> choices = ArgumentChoices(app, *verb);
    if (!choices.empty()) {
      script += "      [[ $word == -* ]] || words='" + join(choices, " ") + "'\n";
    } else {
      script += "      [[ $word == -* ]] || return\n";
    }
    script += "      ;;\n";
  }
  return script +
         "  esac\n"
         "  COMPREPLY=($(compgen -W \"$words\" -- \"$word\"))\n"
         "}\n"
         "complete -o bashdefault -o default -F _kelcache kelcache\n";
}

std::string ZshCompletion(const CLI::App& app) {
  std::string script =
      "#compdef kelcache\n"
      "# Completion of kelcache for zsh, made from its own tables.\n"
      "_kelcache() {\n"
      "  local -a verbs=(\n";
  for (const CLI::App* verb : Verbs(app)) {
    script += "    '" + verb->get_name() + ':' + Plain(verb->get_description()) + "'\n";
  }
  script +=
      "  )\n"
      "  if (( CURRENT == 2 )); then _describe verb verbs; return; fi\n"
      "  local verb=$words[2]\n"
      "  shift words\n"
      "  (( CURRENT-- ))\n"
      "  case $verb in\n";
  for (const CLI::App* verb : Verbs(app)) {
    script += "    " + verb->get_name() + ") _arguments";
    for (const CLI::Option* option : AllOptionsOf(*verb)) {
      const std::vector<std::string> choices = ChoicesOf(*option);
      for (const std::string& spelling : SpellingsOf(*option)) {
        script += " \\\n      '*" + spelling + '[' + Plain(option->get_description()) + ']';
        if (TakesValue(*option)) {
          script += ':' + (choices.empty() ? Plain(ValueNameOf(*option)) : "word") + ':' +
                    (choices.empty() ? "_files" : '(' + join(choices, " ") + ')');
        }
        script += "'";
      }
    }
    const std::vector<std::string> choices = ArgumentChoices(app, *verb);
    script +=
        " \\\n      '*:file:" + (choices.empty() ? "_files" : '(' + join(choices, " ") + ')') +
        "' ;;\n";
  }
  return script + "  esac\n}\n_kelcache \"$@\"\n";
}

std::string FishCompletion(const CLI::App& app) {
  std::string script = "# Completion of kelcache for fish, made from its own tables.\n";
  const auto line = [&](const std::string& words) {
    script += "complete -c kelcache " + words + '\n';
  };
  for (const CLI::App* verb : Verbs(app)) {
    line("-n __fish_use_subcommand -f -a " + verb->get_name() + " -d '" +
         Plain(verb->get_description()) + "'");
  }
  for (const CLI::App* verb : Verbs(app)) {
    const std::string when = "-n '__fish_seen_subcommand_from " + verb->get_name() + "' ";
    const std::vector<std::string> arguments = ArgumentChoices(app, *verb);
    if (!arguments.empty()) line(when + "-f -a '" + join(arguments, " ") + "'");
    for (const CLI::Option* option : AllOptionsOf(*verb)) {
      std::string words;
      for (const std::string& spelling : SpellingsOf(*option)) {
        words += spelling.starts_with("--") ? "-l " + spelling.substr(2) + ' '
                                            : "-s " + spelling.substr(1) + ' ';
      }
      const std::vector<std::string> choices = ChoicesOf(*option);
      if (!choices.empty()) {
        words += "-x -a '" + join(choices, " ") + "' ";
      } else if (TakesValue(*option)) {
        words += "-r ";
      }
      line(when + words + "-d '" + Plain(option->get_description()) + "'");
    }
  }
  return script;
}

void AddCompletion(CLI::App& app, Work* work) {
  using Script = std::string (*)(const CLI::App&);
  static const std::map<std::string, Script> kShells = {
      {"bash", BashCompletion}, {"zsh", ZshCompletion}, {"fish", FishCompletion}};
  const auto shell = std::make_shared<std::string>();
  CLI::App* verb = app.add_subcommand(
      "completion",
      "Prints the script by which a shell completes this command's verbs and options. Packages "
      "install it.");
  verb->footer(
      "Examples:\n  source <(kelcache completion bash)\n"
      "  kelcache completion fish > ~/.config/fish/completions/kelcache.fish");
  verb->add_option("SHELL", *shell, "bash, zsh or fish")
      ->required()
      ->check(OneOf({"bash", "zsh", "fish"}));
  verb->callback([shell, work, &app] {
    *work = [shell, &app] {
      std::fputs(kShells.at(*shell)(app).c_str(), stdout);
      return eDone;
    };
  });
}

}  // namespace kelcache
