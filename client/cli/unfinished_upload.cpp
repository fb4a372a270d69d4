#include "client/cli/unfinished_upload.h"

#include "client/detail/work_name.h"

namespace transmit::cli {

bool is_unfinished_upload(std::string_view name, std::string_view suffix,
                          const std::function<bool(const std::string&)>& exists) {
    const bool has_suffix =
        !suffix.empty() && name.size() > suffix.size() && name.ends_with(suffix);
    const auto stem = has_suffix ? name.substr(0, name.size() - suffix.size()) : name;
    return detail::is_work_name(stem, detail::side_ending) ||
           (has_suffix && !exists(std::string(stem)));
}

}  // namespace transmit::cli
