#include "client/detail/upload_plan.h"

namespace transmit::detail {

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

}  // namespace transmit::detail
