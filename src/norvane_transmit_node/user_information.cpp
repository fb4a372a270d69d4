#include "src/norvane_transmit_node/user_information.h"

#include "kestin_base/strings.h"
#include "src/shared/node_record.h"

std::string clean_user_information(std::string text) {
    Kestin::Base::kestin_string_trim(text, Kestin::Base::blank_characters);
    std::erase(text, '\\');
    const bool fits = text.starts_with('{') && text.ends_with('}') &&
                      text.size() < sizeof NodeRecord::node_user_info &&
                      text.find('\0') == std::string::npos;
    return fits ? text : "{}";
}
