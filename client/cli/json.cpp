#include "client/cli/json.h"

#include <iostream>

#include "client/cli/text.h"

namespace transmit::cli {

void print_line(const Json& object) {
    std::cout << shown_json(object.dump(-1, ' ', false, Json::error_handler_t::replace))
              << std::endl;
}

}  // namespace transmit::cli
