#include "trials/loop_disk.h"

#include <fcntl.h>
#include <linux/loop.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <system_error>

#include "tests/support/child_process.h"

namespace trials {
namespace {

// More than an upload leaves to others, so that room is reserved. The image is sparse.
constexpr off_t disk_size = off_t{4} << 30;

// linux/fs.h has neither of them everywhere: ext4's ioctl, and its way without a log flush.
constexpr unsigned long shutdown_request = _IOR('X', 125, std::uint32_t);
constexpr std::uint32_t without_log_flush = 2;

int checked(int result, const char* what) {
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
    return result;
}

int unnamed_image() {
    const support::TemporaryFolder folder;
    const int image = checked(
        ::open((folder.path() + "image").c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600),
        "image");
    checked(::ftruncate(image, disk_size), "image");
    return image;
}

}  // namespace

LoopDisk::LoopDisk() {
    checked(::unshare(CLONE_NEWNS), "mount namespace");
    checked(::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "private mounts");
    const int control = checked(::open("/dev/loop-control", O_RDWR | O_CLOEXEC), "loop control");
    const int image = unnamed_image();
    loop_config configuration{};
    configuration.fd = static_cast<std::uint32_t>(image);
    configuration.info.lo_flags = LO_FLAGS_AUTOCLEAR;
    do {
        const int number = checked(::ioctl(control, LOOP_CTL_GET_FREE), "loop device");
        device_path_ = "/dev/loop" + std::to_string(number);
        device_ = checked(::open(device_path_.c_str(), O_RDWR | O_CLOEXEC), "loop device");
        if (::ioctl(device_, LOOP_CONFIGURE, &configuration) == 0) {
            break;
        }
        // Somebody else took it in between.
        const int reason = errno;
        ::close(device_);
        errno = reason;
        checked(reason == EBUSY ? 0 : -1, "loop device");
    } while (true);
    ::close(image);
    ::close(control);
}

LoopDisk::~LoopDisk() {
    if (is_mounted_) {
        ::umount2(path().c_str(), MNT_DETACH);
    }
    ::close(device_);
}

void LoopDisk::format() {
    if (is_mounted_) {
        unmount();
    }
    support::output_of("/sbin/mkfs.ext4", {"mkfs.ext4", "-q", "-F", device_path_});
    mount();
}

void LoopDisk::sync() {
    const int folder = open_root();
    const int result = ::syncfs(folder);
    ::close(folder);
    checked(result, "sync");
}

void LoopDisk::cut_power() {
    const int folder = open_root();
    std::uint32_t way = without_log_flush;
    const int result = ::ioctl(folder, shutdown_request, &way);
    ::close(folder);
    checked(result, "power cut");
}

int LoopDisk::open_root() const {
    return checked(::open(path().c_str(), O_RDONLY | O_CLOEXEC), "disk");
}

void LoopDisk::restart() {
    unmount();
    mount();
}

// A commit each second instead of every five: cuts meet more states of the journal.
void LoopDisk::mount() {
    checked(::mount(device_path_.c_str(), path().c_str(), "ext4", MS_NOATIME, "commit=1"), "mount");
    is_mounted_ = true;
}

void LoopDisk::unmount() {
    checked(::umount2(path().c_str(), 0), "unmount");
    is_mounted_ = false;
}

}  // namespace trials
