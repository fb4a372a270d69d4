#include "client/cli/json.h"

#include <cstdio>
#include <string>

namespace transmit::cli {

void print_line(const Json& object) {
    const std::string line = object.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fflush(stdout);
}

}  // namespace transmit::cli
