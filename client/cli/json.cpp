#include "client/cli/json.h"

#include <iostream>

namespace transmit::cli {

void print_line(const Json& object) {
    std::cout << object.dump(-1, ' ', false, Json::error_handler_t::replace) << std::endl;
}

}  // namespace transmit::cli
