#pragma once

#include <cstdint>

// What an upload does with what it finds on the disk. S and T are the announced size and time; only
// a regular file counts, and a target that isn't complete is replaced.
//
//   target            temporary file         plan
//   size S, time T    anything               already_complete
//   anything else     size S, time T         finish_temporary
//   anything else     time T, size below S   continue_temporary
//   anything else     anything else, none    start_over
enum class UploadPlan { already_complete, finish_temporary, continue_temporary, start_over };

struct FileFacts {
    bool exists = false;  // as a regular file
    std::int64_t size = 0;
    std::int64_t time = 0;
};

// Size and time as announced; `exists` plays no part there.
constexpr bool is_announced(const FileFacts& file, const FileFacts& announced) {
    return file.exists && file.time == announced.time && file.size == announced.size;
}

constexpr UploadPlan plan_upload(const FileFacts& target, const FileFacts& temporary,
                                 const FileFacts& announced) {
    if (is_announced(target, announced)) {
        return UploadPlan::already_complete;
    }
    if (is_announced(temporary, announced)) {
        return UploadPlan::finish_temporary;
    }
    const bool is_of_that_time = temporary.exists && temporary.time == announced.time;
    return is_of_that_time && temporary.size < announced.size ? UploadPlan::continue_temporary
                                                              : UploadPlan::start_over;
}
