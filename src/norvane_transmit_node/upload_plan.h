#pragma once

#include <cstdint>

// What an upload does with what it finds on the disk. S and T are the announced size and time; a
// target that isn't complete is deleted.
//
//   target            temporary file         plan
//   size S, time T    anything               already_complete
//   anything else     size S, time T         finish_temporary
//   anything else     time T, size below S   continue_temporary
//   anything else     anything else, none    start_over
enum class UploadPlan { already_complete, finish_temporary, continue_temporary, start_over };

struct FileFacts {
    bool exists = false;
    std::int64_t size = 0;
    std::int64_t time = 0;
};

// Size and time as announced; `exists` plays no part there.
constexpr UploadPlan plan_upload(const FileFacts& target, const FileFacts& temporary,
                                 const FileFacts& announced) {
    const auto is_of_that_time = [&announced](const FileFacts& file) {
        return file.exists && file.time == announced.time;
    };
    if (is_of_that_time(target) && target.size == announced.size) {
        return UploadPlan::already_complete;
    }
    if (is_of_that_time(temporary) && temporary.size == announced.size) {
        return UploadPlan::finish_temporary;
    }
    if (is_of_that_time(temporary) && temporary.size < announced.size) {
        return UploadPlan::continue_temporary;
    }
    return UploadPlan::start_over;
}
