#pragma once

#include <nlohmann/json.hpp>

namespace transmit::cli {

using Json = nlohmann::ordered_json;

// One object as a line of standard output, at once. Bytes that are no UTF-8 become U+FFFD.
void print_line(const Json& object);

}  // namespace transmit::cli
