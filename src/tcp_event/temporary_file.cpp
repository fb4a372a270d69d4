#include "src/tcp_event/temporary_file.h"

#include <algorithm>
#include <cerrno>
#include <sstream>
#include <utility>

#include "kestin_base/file_system.h"

using Kestin::Base::File;
using Kestin::Base::PathFacts;

namespace {

// Room is reserved for files larger than the first, and never more than the second at a time.
constexpr std::int64_t least_reserve = 1 << 20;
constexpr std::int64_t most_reserve = 64 << 20;

// Writing to the disk starts when so much has come, so that a later sync finds little left to do.
constexpr std::int64_t write_back_step = 8 << 20;

// "SIZE TIME", in decimal digits.
constexpr const char* checkpoint_attribute = "user.transmit.checkpoint";

struct Checkpoint {
    std::int64_t size = 0;
    std::int64_t time = 0;
};

bool read_checkpoint(const File& file, Checkpoint& checkpoint) {
    std::string text;
    if (!file.get_attribute(checkpoint_attribute, text)) {
        return false;
    }
    std::istringstream stream(text);
    return stream >> checkpoint.size >> checkpoint.time && checkpoint.size >= 0;
}

std::int64_t total_length(std::span<const TemporaryFile::Block> blocks) {
    std::size_t total = 0;
    for (const auto& block : blocks) {
        total += block.size();
    }
    return static_cast<std::int64_t>(total);
}

}  // namespace

TemporaryFile::TemporaryFile(UploadClaim claim, std::string path, const WritePolicy& policy)
    : claim_(std::move(claim)), path_(std::move(path)), policy_(policy) {
}

TemporaryFile::Opening TemporaryFile::open() {
    is_new_ = file_.create(path_.c_str());
    return is_new_ ? lock() : open_existing();
}

TemporaryFile::Opening TemporaryFile::open_existing() {
    if (file_.open_existing(path_.c_str())) {
        return lock();
    }
    const int reason = errno;
    const PathFacts facts = Kestin::Base::kestin_look_at(path_.c_str());
    const bool is_obstacle = !facts.is_unknown && (!facts.is_regular || facts.is_link);
    errno = reason;
    if (!facts.exists) {
        return Opening::missing;
    }
    return is_obstacle ? Opening::obstacle : Opening::failed;
}

// Whoever held the lock before us may have renamed or removed the file.
TemporaryFile::Opening TemporaryFile::lock() {
    if (file_.lock() == File::Lock::held || !file_.is_at(path_.c_str())) {
        file_.close();
        return Opening::in_use;
    }
    if (!is_new_ && policy_.checkpoint_size > 0) {
        return_to_checkpoint();
    }
    return Opening::ready;
}

void TemporaryFile::return_to_checkpoint() {
    Checkpoint checkpoint;
    if (read_checkpoint(file_, checkpoint) && file_.look().size >= checkpoint.size &&
        file_.truncate(checkpoint.size)) {
        file_.set_time(checkpoint.time);
    }
}

// The first write takes the stamp from a file that is continued, so its bytes are noted.
std::int64_t TemporaryFile::begin(std::int64_t announced_size, std::int64_t announced_time) {
    announced_size_ = announced_size;
    announced_time_ = announced_time;
    size_ = written_back_size_ = checkpoint_ = is_new_ ? 0 : file_.look().size;
    if (size_ > 0 && policy_.checkpoint_size > 0) {
        note_checkpoint();
    }
    return size_;
}

std::size_t TemporaryFile::write(std::span<const Block> blocks) {
    reserve_ahead(size_ + total_length(blocks));
    const std::size_t written = file_.write_pieces(blocks);
    size_ += total_length(blocks.first(written));
    return follow_up() ? written : 0;
}

// As much again as the client has sent already, so that one that only announces gets nothing.
void TemporaryFile::reserve_ahead(std::int64_t next_size) {
    if (next_size <= reserved_size_ || size_ < least_reserve) {
        return;
    }
    const std::int64_t reserve = std::min({announced_size_ - size_, size_, most_reserve});
    if (reserve > 0) {
        file_.reserve(static_cast<std::uint64_t>(reserve));
    }
    reserved_size_ = size_ + reserve;
}

// What is due after a write. False: a checkpoint's sync failed.
bool TemporaryFile::follow_up() {
    const bool has_checkpoints = policy_.checkpoint_size > 0;
    if ((policy_.is_durable || has_checkpoints) && size_ - written_back_size_ >= write_back_step) {
        file_.start_write_back(written_back_size_, size_);
        written_back_size_ = size_;
    }
    if (has_checkpoints && size_ - checkpoint_ >= policy_.checkpoint_size) {
        return note_checkpoint();
    }
    return true;
}

// Without attributes there are no checkpoints, as if none were asked for.
bool TemporaryFile::note_checkpoint() {
    if (!sync()) {
        return false;
    }
    const std::string text = std::to_string(size_) + ' ' + std::to_string(announced_time_);
    is_noted_ = file_.set_attribute(checkpoint_attribute, text);
    if (!is_noted_) {
        policy_.checkpoint_size = 0;
        return true;
    }
    checkpoint_ = size_;
    return keep_intact(file_.sync_attributes());
}

bool TemporaryFile::settle() {
    const bool leaves_it_to_the_system = size_ == announced_size_ && !policy_.is_durable;
    if (!keep_intact(leaves_it_to_the_system ? file_.flush() : file_.sync())) {
        return false;
    }
    is_stamped_ = file_.set_time(announced_time_);
    // The stamp comes first: until it is there, the note is what vouches for the bytes.
    if (is_noted_ && is_stamped_ && file_.remove_attribute(checkpoint_attribute)) {
        is_noted_ = false;
    }
    return true;
}

bool TemporaryFile::sync() {
    return keep_intact(file_.sync());
}

// A failure is reported once: a later sync may succeed although bytes are lost.
bool TemporaryFile::keep_intact(bool is_stored) {
    is_intact_ = is_intact_ && is_stored;
    if (!is_intact_) {
        spoil();
    }
    return is_intact_;
}

bool TemporaryFile::is_in_place() const {
    return file_.is_at(path_.c_str(), size_);
}

void TemporaryFile::spoil() {
    const int reason = errno;
    is_stamped_ = false;
    file_.set_time(announced_time_ == 0 ? 1 : 0);
    errno = reason;
}
