#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "kestin_base/file.h"
#include "kestin_base/uncopy.h"
#include "src/tcp_event/upload_claim.h"

// When an upload's bytes have to be on the disk. Without either, a finished file is written when
// the system likes.
struct WritePolicy {
    bool is_durable = false;           // before a finish is answered
    std::int64_t checkpoint_size = 0;  // every so many bytes of an unfinished upload; 0: never
};

// The file beside its target that an upload writes. While it is open, its names are claimed against
// all uploads of this process, and the file is locked (flock(2)) against those who reach it by
// another name or from another process. On a file system without locks only the claim protects it.
//
// Its time of last modification is its stamp: the announced time, set when the writing ends. A
// stamp vouches for the file's bytes: they are on the disk, unless the file was complete and about
// to get its final name. A file without its stamp isn't continued.
//
// A checkpoint does the same for an upload that is cut short by a kill or a power cut. Whenever
// that many bytes have come, they are synced; then an attribute of the file notes their number and
// the announced time, and is synced as well. `open` cuts a file that has such a note to the noted
// size and stamps it, so no reader of stamps has to know of checkpoints.
class TemporaryFile : private Kestin::Base::Uncopy {
  public:
    using Block = Kestin::Base::File::Piece;

    TemporaryFile(UploadClaim claim, std::string path, const WritePolicy& policy);

    // Makes the file, or opens the one that is there, and locks it.
    //   ready     it is open
    //   in_use    another upload holds it
    //   missing   nothing stands there, and no file can be made: as a rule, there is no folder
    //   obstacle  something else than a regular file stands there
    //   failed    the system doesn't let us
    enum class Opening { ready, in_use, missing, obstacle, failed };
    Opening open();

    // Opens and locks the one that is there.
    Opening open_existing();

    // Size and stamp of the open file.
    Kestin::Base::PathFacts look() const { return file_.look(); }

    // Whether `open` made the file.
    bool is_new() const { return is_new_; }

    // Begins to write a file of that size and time behind the bytes that the open file has, and
    // returns their number.
    std::int64_t begin(std::int64_t announced_size, std::int64_t announced_time);

    // Writes blocks, at most File::most_pieces of them, and returns how many were written whole.
    std::size_t write(std::span<const Block> blocks);

    // Ends the writing: stamps the file, and before that syncs it, unless it is complete and the
    // policy doesn't ask for it. False: not all of its bytes are known to be stored, and it bears a
    // time that isn't the announced one.
    bool settle();

    // Syncs what `settle` left to the system; false as there.
    bool sync();

    // After `settle`: whether it could set the announced time.
    bool is_stamped() const { return is_stamped_; }

    // Whether this very file, with the bytes that were written to it, stands at its path.
    bool is_in_place() const;

    // Sets a time that isn't the announced one, so that no prepare continues the file. Keeps errno.
    void spoil();

    const std::string& path() const { return path_; }
    const WritePolicy& policy() const { return policy_; }

  private:
    Opening lock();
    void return_to_checkpoint();
    bool note_checkpoint();
    bool keep_intact(bool is_stored);
    void reserve_ahead(std::int64_t next_size);
    bool follow_up();

    // The claim outlives the file, so that nobody in this process meets the lock.
    UploadClaim claim_;
    std::string path_;
    WritePolicy policy_;
    std::int64_t announced_size_ = 0;
    std::int64_t announced_time_ = 0;
    std::int64_t size_ = 0;
    std::int64_t written_back_size_ = 0;
    std::int64_t checkpoint_ = 0;
    std::int64_t reserved_size_ = 0;
    bool is_new_ = false;
    bool is_noted_ = false;  // an attribute names a checkpoint
    bool is_intact_ = true;  // no sync has failed
    bool is_stamped_ = false;
    Kestin::Base::File file_;
};
