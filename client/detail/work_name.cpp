#include "client/detail/work_name.h"

#include "client/detail/sha256.h"

namespace transmit::detail {
namespace {

constexpr std::string_view mark = ".transmit-";
constexpr std::size_t digits = 32;

}  // namespace

std::string work_name(std::string_view name, std::string_view ending, int round) {
    std::string hashed(name);
    if (round > 0) {
        hashed.append(1, '/').append(std::to_string(round));
    }
    return std::string(mark) + Sha256::of(hashed).substr(0, digits) + std::string(ending);
}

bool is_work_name(std::string_view name, std::string_view ending) {
    return name.size() == mark.size() + digits + ending.size() && name.starts_with(mark) &&
           name.ends_with(ending) &&
           name.find_first_not_of("0123456789abcdef", mark.size()) == mark.size() + digits;
}

}  // namespace transmit::detail
