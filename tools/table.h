#pragma once

#include <string>
#include <vector>

namespace kelcache {

/// Lines of aligned columns, the first flush left and the others flush right. All rows are as long.
std::vector<std::string> TableLines(const std::vector<std::vector<std::string>>& rows);

}  // namespace kelcache
