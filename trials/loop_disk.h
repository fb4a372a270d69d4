#pragma once

#include <string>

#include "kestin_base/uncopy.h"
#include "tests/support/temporary_folder.h"

namespace trials {

// A disk of our own: ext4 on a loop device, whose power can be cut. The image has no name, the
// mount is seen by this process and its children alone, and the device belongs to nobody else:
// whatever ends the process, the kernel takes all of it away. Needs root.
class LoopDisk : private Kestin::Base::Uncopy {
  public:
    // Throws if there can be none; the text says why.
    LoopDisk();
    ~LoopDisk();

    // Where it is mounted, with "/" at its end.
    const std::string& path() const { return folder_.path(); }

    // A new file system, which is mounted.
    void format();

    // Writes all that the file system holds (syncfs(2)).
    void sync();

    // From here on nothing reaches the disk, and the journal isn't flushed (FS_IOC_SHUTDOWN).
    void cut_power();

    // Mounts again what has reached it. All files on it have to be closed.
    void restart();

  private:
    int open_root() const;
    void mount();
    void unmount();

    support::TemporaryFolder folder_;
    int device_ = -1;
    std::string device_path_;
    bool is_mounted_ = false;
};

}  // namespace trials
