#include "client/detail/upload_plan.h"

#include "client/detail/remote_folders.h"
#include "client/detail/sha256.h"

namespace transmit::detail {
namespace {

constexpr std::string_view side_suffix = ".transmit-new";
constexpr std::size_t longest_plain_name = 220;
constexpr std::size_t hash_digits = 32;

}  // namespace

UploadWay plan_upload(const Entry* there, const FileStamp& source, bool in_place, bool forced) {
    if (!there) {
        return UploadWay::straight;
    }
    if (there->is_folder) {
        return UploadWay::no_folder;
    }
    const bool same = FileStamp{there->size, there->time} == source;
    if (same) {
        return forced ? UploadWay::aside : UploadWay::none;
    }
    return in_place ? UploadWay::straight : UploadWay::aside;
}

std::string side_path(std::string_view target) {
    const auto [folder, name] = split(target);
    const std::string stem = name.size() <= longest_plain_name
                                 ? std::string(name)
                                 : Sha256::of(name).substr(0, hash_digits);
    return std::string(folder) + stem + std::string(side_suffix);
}

}  // namespace transmit::detail
