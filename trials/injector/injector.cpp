// Loaded into a server ahead of all its libraries: stands between it and the calls of the system
// that an order names, and makes them fail as ordered.

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "trials/injector/fault_order.h"

// The C library's own memory, which needs no search for the next function of the name: such a
// search asks for memory itself.
extern "C" void* __libc_malloc(std::size_t size);
extern "C" void* __libc_calloc(std::size_t count, std::size_t size);
extern "C" void* __libc_realloc(void* memory, std::size_t size);

namespace {

using faults::Call;

faults::Order* order = nullptr;

__attribute__((constructor)) void take_orders() {
    const char* path = std::getenv(faults::order_variable);
    const int file = path == nullptr ? -1 : open(path, O_RDWR | O_CLOEXEC);
    void* shared =
        mmap(nullptr, sizeof(faults::Order), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    order = shared == MAP_FAILED ? nullptr : static_cast<faults::Order*>(shared);
}

// Whether this very call is to fail; then the error is where the caller of the function looks.
bool fails(Call call) {
    if (order == nullptr || order->call.load(std::memory_order_acquire) != call) {
        return false;
    }
    const int number = ++order->seen;
    if (number < order->first || number >= order->first + order->count) {
        return false;
    }
    ++order->failed;
    errno = order->error;
    return true;
}

bool fails(Call call, const char* path) {
    return (path == nullptr || std::strstr(path, "/log/") == nullptr) && fails(call);
}

// For calls that may do a part of their work: how much of it they do; negative, they fail.
ssize_t part_of(std::size_t size, Call call) {
    if (!fails(call)) {
        return static_cast<ssize_t>(size);
    }
    return errno == faults::cut_short ? static_cast<ssize_t>(std::min<std::size_t>(size, 1)) : -1;
}

bool hangs(const char* path) {
    return order->hangs.load(std::memory_order_acquire) && path != nullptr &&
           std::strstr(path, faults::hanging_folder) != nullptr;
}

// Returns once nothing hangs there.
void wait_for(const char* path) {
    if (order == nullptr || !hangs(path)) {
        return;
    }
    ++order->hanging;
    while (hangs(path)) {
        constexpr timespec pause{0, 5'000'000};
        nanosleep(&pause, nullptr);
    }
    --order->hanging;
}

// The same for an open file or folder.
void wait_for(int file) {
    if (order == nullptr || !order->hangs.load(std::memory_order_acquire)) {
        return;
    }
    std::array<char, 64> link{};
    static_cast<void>(std::snprintf(link.data(), link.size(), "/proc/self/fd/%d", file));
    std::array<char, 4096> path{};
    const ssize_t size = readlink(link.data(), path.data(), path.size() - 2);
    if (size > 0) {
        path[static_cast<std::size_t>(size)] = '/';
        wait_for(path.data());
    }
}

template <typename Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// The function of that name behind this library.
#define NEXT(name) static auto* const next_##name = next<decltype(name)>(#name)

extern "C" {

void* malloc(std::size_t size) {
    return fails(Call::allocate) ? nullptr : __libc_malloc(size);
}
void* calloc(std::size_t count, std::size_t size) {
    return fails(Call::allocate) ? nullptr : __libc_calloc(count, size);
}
void* realloc(void* memory, std::size_t size) {
    return fails(Call::allocate) ? nullptr : __libc_realloc(memory, size);
}

void* mmap(void* address, std::size_t size, int protection, int flags, int file, off_t offset) {
    NEXT(mmap);
    return fails(Call::map) ? MAP_FAILED
                            : next_mmap(address, size, protection, flags, file, offset);
}

ssize_t write(int file, const void* data, std::size_t size) {
    NEXT(write);
    wait_for(file);
    const ssize_t part = part_of(size, Call::write);
    return part < 0 ? -1 : next_write(file, data, static_cast<std::size_t>(part));
}
ssize_t pread(int file, void* data, std::size_t size, off_t offset) {
    NEXT(pread);
    wait_for(file);
    const ssize_t part = part_of(size, Call::read);
    return part < 0 ? -1 : next_pread(file, data, static_cast<std::size_t>(part), offset);
}
ssize_t recv(int socket, void* data, std::size_t size, int flags) {
    NEXT(recv);
    const ssize_t part = part_of(size, Call::receive);
    return part < 0 ? -1 : next_recv(socket, data, static_cast<std::size_t>(part), flags);
}
// Of many pieces the first byte of the first, which is never empty.
ssize_t writev(int file, const iovec* pieces, int count) {
    NEXT(writev);
    wait_for(file);
    const ssize_t part = part_of(2, Call::write);
    const iovec first{pieces->iov_base, 1};
    return part < 0    ? -1
           : part == 1 ? next_writev(file, &first, 1)
                       : next_writev(file, pieces, count);
}
ssize_t sendmsg(int socket, const msghdr* message, int flags) {
    NEXT(sendmsg);
    const ssize_t part = part_of(2, Call::send);
    iovec first{message->msg_iov->iov_base, 1};
    msghdr cut = *message;
    cut.msg_iov = &first;
    cut.msg_iovlen = 1;
    return part < 0 ? -1 : next_sendmsg(socket, part == 1 ? &cut : message, flags);
}

int fdatasync(int file) {
    NEXT(fdatasync);
    wait_for(file);
    return fails(Call::sync) ? -1 : next_fdatasync(file);
}
int fsync(int file) {
    NEXT(fsync);
    wait_for(file);
    return fails(Call::sync) ? -1 : next_fsync(file);
}
int fallocate(int file, int mode, off_t offset, off_t length) {
    NEXT(fallocate);
    wait_for(file);
    return fails(Call::reserve) ? -1 : next_fallocate(file, mode, offset, length);
}
int ftruncate(int file, off_t length) {
    NEXT(ftruncate);
    wait_for(file);
    return fails(Call::reserve) ? -1 : next_ftruncate(file, length);
}

// A descriptor whose close reports an error is closed all the same (close(2)).
int close(int file) {
    NEXT(close);
    wait_for(file);
    const bool is_reported = fails(Call::close);
    const int error = errno;
    const int result = next_close(file);
    errno = is_reported ? error : errno;
    return is_reported ? -1 : result;
}

int open(const char* path, int flags, ...) {
    NEXT(open);
    wait_for(path);
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return fails(Call::open, path) ? -1 : next_open(path, flags, mode);
}
// Nobody makes a file with it.
int openat(int folder, const char* path, int flags, ...) {
    NEXT(openat);
    wait_for(folder);
    return fails(Call::open, path) ? -1 : next_openat(folder, path, flags);
}
int rename(const char* from, const char* to) {
    NEXT(rename);
    wait_for(from);
    return fails(Call::rename, from) ? -1 : next_rename(from, to);
}
int unlink(const char* path) {
    NEXT(unlink);
    wait_for(path);
    return fails(Call::unlink, path) ? -1 : next_unlink(path);
}
int unlinkat(int folder, const char* path, int flags) {
    NEXT(unlinkat);
    wait_for(folder);
    return fails(Call::unlink, path) ? -1 : next_unlinkat(folder, path, flags);
}
int rmdir(const char* path) {
    NEXT(rmdir);
    wait_for(path);
    return fails(Call::unlink, path) ? -1 : next_rmdir(path);
}
int utimensat(int folder, const char* path, const timespec times[2], int flags) {
    NEXT(utimensat);
    wait_for(path);
    return fails(Call::set_time, path) ? -1 : next_utimensat(folder, path, times, flags);
}
int futimens(int file, const timespec times[2]) {
    NEXT(futimens);
    wait_for(file);
    return fails(Call::set_time) ? -1 : next_futimens(file, times);
}
int mkdir(const char* path, mode_t mode) {
    NEXT(mkdir);
    wait_for(path);
    return fails(Call::make_folder, path) ? -1 : next_mkdir(path, mode);
}
DIR* opendir(const char* path) {
    NEXT(opendir);
    wait_for(path);
    return fails(Call::open_folder, path) ? nullptr : next_opendir(path);
}
DIR* fdopendir(int folder) {
    NEXT(fdopendir);
    return fails(Call::open_folder) ? nullptr : next_fdopendir(folder);
}
dirent* readdir(DIR* folder) {
    NEXT(readdir);
    return fails(Call::read_folder) ? nullptr : next_readdir(folder);
}
int stat(const char* path, struct stat* facts) {
    NEXT(stat);
    wait_for(path);
    return fails(Call::examine, path) ? -1 : next_stat(path, facts);
}
int lstat(const char* path, struct stat* facts) {
    NEXT(lstat);
    wait_for(path);
    return fails(Call::examine, path) ? -1 : next_lstat(path, facts);
}
int fstat(int file, struct stat* facts) {
    NEXT(fstat);
    wait_for(file);
    return fails(Call::examine) ? -1 : next_fstat(file, facts);
}
int fstatat(int folder, const char* path, struct stat* facts, int flags) {
    NEXT(fstatat);
    wait_for(folder);
    return fails(Call::examine, path) ? -1 : next_fstatat(folder, path, facts, flags);
}

int accept4(int socket, sockaddr* address, socklen_t* size, int flags) {
    NEXT(accept4);
    return fails(Call::accept) ? -1 : next_accept4(socket, address, size, flags);
}
int epoll_wait(int poller, epoll_event* events, int count, int limit) {
    NEXT(epoll_wait);
    return fails(Call::wait) ? -1 : next_epoll_wait(poller, events, count, limit);
}
int epoll_ctl(int poller, int operation, int file, epoll_event* event) {
    NEXT(epoll_ctl);
    return fails(Call::watch) ? -1 : next_epoll_ctl(poller, operation, file, event);
}

}  // extern "C"
