#include <fstream>
#include <map>
#include <memory>
#include <set>

#include "tools/json.h"
#include "tools/readable.h"
#include "tools/terminal.h"
#include "tools/verbs.h"

namespace kelcache {
namespace {

struct ReportOptions {
  std::vector<std::string> files;
  bool json = false;
};

/// What the reports of one verb come to.
struct Sums {
  std::map<EExit, std::size_t> byStatus;
  std::map<std::string, std::size_t> findings;  // by kind
  std::map<std::string, double> counts;
  std::map<unsigned int, std::set<unsigned int>> shards;  // that came to their end, by their number
};

template <typename Value>
Value ValueOr(const Json& report, const char* key, Value otherwise) {
  const auto found = report.find(key);
  return found != report.end() && !found->is_null() ? found->get<Value>() : otherwise;
}

class Merger {
 public:
  void Read(const std::string& path) {
    ExpectReadable(path);
    std::ifstream in(path, std::ios::binary);
    std::size_t number = 0;
    for (std::string line; std::getline(in, line);) {
      ++number;
      if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
      if (in.eof() || !Take(line)) {
        Complain(path + ", line " + std::to_string(number) +
                 (in.eof() ? ": is cut short" : ": is no report of kelcache"));
      }
    }
    if (in.bad()) throw Failed(path, "could not be read");
  }

  // Of a file that was reported on more than once the last word counts.
  void Sum() {
    for (const auto& [key, report] : reports_) {
      Sums& sums = sums_[key.first];
      const auto status = static_cast<EExit>(report.at("status").get<int>());
      ++sums.byStatus[status];
      worst_ = std::max(worst_, status);
      for (const Json& finding : report.at("findings")) {
        ++sums.findings[finding.at("kind").get<std::string>()];
      }
      for (const auto& [name, count] : report.at("counts").items()) {
        if (count.is_number()) sums.counts[name] += count.get<double>();
      }
      if (status != eDone) failures_.push_back(key.first + ' ' + key.second + ": " + Why(report));
    }
    for (const auto& [verb, sums] : sums_) {
      for (const auto& [count, done] : sums.shards) ExpectAll(verb, count, done);
    }
  }

  void PrintText() const {
    for (const std::string& line : complaints_) PrintLine(stdout, line);
    for (const std::string& line : failures_) PrintLine(stdout, line);
    for (const auto& [verb, sums] : sums_) {
      std::size_t files = 0;
      for (const auto& [status, count] : sums.byStatus) files += count;
      std::string line = verb + ": " + std::to_string(files) + " files";
      for (const auto& [status, count] : sums.byStatus) {
        line += ", " + std::to_string(count) + ' ' + WordOf(status);
      }
      PrintLine(stdout, line);
      PrintNumbers("findings", sums.findings);
      PrintNumbers("counts", sums.counts);
    }
    if (repeated_ != 0) {
      PrintLine(stdout, std::to_string(repeated_) +
                            " reports were followed by later ones of the "
                            "same file");
    }
  }

  void PrintJson() const {
    Json json = {{"verb", "report"},        {"status", static_cast<int>(worst_)},
                 {"problems", complaints_}, {"failures", failures_},
                 {"repeated", repeated_},   {"verbs", Json::object()}};
    for (const auto& [verb, sums] : sums_) {
      Json one = {
          {"statuses", Json::object()}, {"findings", sums.findings}, {"counts", sums.counts}};
      for (const auto& [status, count] : sums.byStatus) {
        one["statuses"][std::to_string(status)] = count;
      }
      json["verbs"][verb] = one;
    }
    PrintLine(stdout, json.dump(2, ' ', false, Json::error_handler_t::replace));
  }

  EExit worst() const { return worst_; }

 private:
  bool Take(const std::string& line) {
    Json report = Json::parse(line, nullptr, false);
    try {
      const std::string verb = report.at("verb").get<std::string>();
      if (report.contains("shard")) {
        const auto shard = ParseShard(report.at("shard").get<std::string>());
        if (!shard) return false;
        sums_[verb].shards[shard->count].insert(shard->index);
        return true;
      }
      const auto status = report.at("status").get<int>();
      const std::string file = report.at("file").get<std::string>();
      if (status < 0 || !report.at("findings").is_array() || !report.at("counts").is_object()) {
        return false;
      }
      for (const Json& finding : report.at("findings")) finding.at("kind").get<std::string>();
      const auto [known, isNew] = reports_.insert_or_assign({verb, file}, Brief(report));
      if (!isNew) ++repeated_;
      return true;
    } catch (const Json::exception&) {
      return false;
    }
  }

  // What the sums need: a folder of 100,000 caches is held by its results alone.
  static Json Brief(const Json& report) {
    Json findings = Json::array();
    for (const Json& finding : report.at("findings")) {
      findings.push_back({{"kind", finding.at("kind")}});
      if (findings.size() == 1) findings[0]["text"] = ValueOr<std::string>(finding, "text", "");
    }
    return {{"status", report.at("status")},
            {"error", ValueOr<std::string>(report, "error", "")},
            {"findings", std::move(findings)},
            {"counts", report.at("counts")}};
  }

  static std::string Why(const Json& report) {
    const std::string error = report.at("error").get<std::string>();
    const Json& findings = report.at("findings");
    if (!error.empty() || findings.empty()) return error.empty() ? "samples are missing" : error;
    const std::size_t more = findings.size() - 1;
    return findings[0].at("text").get<std::string>() +
           (more != 0 ? ", and " + std::to_string(more) + " more" : std::string());
  }

  static std::string WordOf(EExit status) {
    switch (status) {
      case eDone: return "done";
      case eFound: return "with findings";
      case eUsage: return "misused";
      case eFailed: return "failed";
    }
    return "ended by signal " + std::to_string(status - 128);
  }

  template <typename Numbers>
  static void PrintNumbers(const char* label, const Numbers& numbers) {
    std::string line;
    for (const auto& [name, number] : numbers) {
      if (number != 0)
        line += (line.empty() ? "" : ", ") + name + ' ' + ShortestText(double(number));
    }
    if (!line.empty()) PrintLine(stdout, std::string("  ") + label + ": " + line);
  }

  void Complain(const std::string& line) {
    complaints_.push_back(line);
    worst_ = std::max(worst_, eFailed);
  }

  void ExpectAll(const std::string& verb, unsigned int count, const std::set<unsigned int>& done) {
    std::string missing;
    for (unsigned int i = 1; i <= count; ++i) {
      if (!done.contains(i)) missing += ' ' + std::to_string(i) + '/' + std::to_string(count);
    }
    if (!missing.empty()) Complain(verb + ": these shards did not report their end:" + missing);
  }

  std::map<std::pair<std::string, std::string>, Json> reports_;  // by verb and file
  std::map<std::string, Sums> sums_;                             // by verb
  std::vector<std::string> complaints_;
  std::vector<std::string> failures_;
  std::size_t repeated_ = 0;
  EExit worst_ = eDone;
};

EExit ReportOn(const ReportOptions& options) {
  Merger merger;
  for (const std::string& file : options.files) merger.Read(file);
  merger.Sum();
  options.json ? merger.PrintJson() : merger.PrintText();
  return merger.worst();
}

}  // namespace

void AddReport(CLI::App& app, Work* work) {
  const auto options = std::make_shared<ReportOptions>();
  CLI::App* verb = app.add_subcommand(
      "report",
      "Sums up reports that verbs printed with --json. Lists what failed or was found, and says "
      "when a line is cut short or the end of a shard is missing. The exit status is the worst of "
      "all.");
  verb->footer("Example:\n  kelcache report convert-*.ndjson");
  verb->add_option("FILE", options->files, "Files of reports, an object in each line")->required();
  AddJsonOption(verb, &options->json);
  verb->callback([=] { *work = [=] { return ReportOn(*options); }; });
}

}  // namespace kelcache
