#include "tools/bare_report.h"

#include "tools/tool_error.h"

namespace kelcache {

Json BareReport(const char* verb, const std::string& file) {
  return {{"verb", verb},
          {"file", file},
          {"status", static_cast<int>(eDone)},
          {"error", nullptr},
          {"notes", Json::array()},
          {"findings", Json::array()},
          {"counts", Json::object()}};
}

std::string TextOf(const Json& report, bool inOneLine) {
  return report.dump(inOneLine ? -1 : 2, ' ', false, Json::error_handler_t::replace);
}

}  // namespace kelcache
