#include "src/main/local_offsets.h"

namespace {

constexpr std::time_t day = 24L * 60 * 60;

long offset_at(std::time_t time) {
    tm local{};
    localtime_r(&time, &local);
    return local.tm_gmtoff;
}

// The first second in (before, after] that has the offset of `after`.
std::time_t change_between(std::time_t before, std::time_t after) {
    const long changed = offset_at(after);
    while (after - before > 1) {
        const std::time_t middle = before + (after - before) / 2;
        (offset_at(middle) == changed ? after : before) = middle;
    }
    return after;
}

}  // namespace

void LocalOffsets::load(std::time_t now) {
    count_ = 0;
    add(now, offset_at(now));
    const std::time_t end = now + std::time_t{years_ahead} * 366 * day;
    for (std::time_t time = now; time < end; time += day) {
        const long offset = offset_at(time + day);
        if (offset != changes_[count_ - 1].offset) {
            add(change_between(time, time + day), offset);
        }
    }
}

void LocalOffsets::add(std::time_t since, long offset) {
    if (count_ < changes_.size()) {
        changes_[count_++] = {since, offset};
    }
}

long LocalOffsets::at(std::time_t at) const {
    long offset = changes_[0].offset;
    for (std::size_t i = 0; i < count_ && changes_[i].since <= at; ++i) {
        offset = changes_[i].offset;
    }
    return offset;
}
