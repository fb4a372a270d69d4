#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <system_error>
#include <utility>

namespace bench {

// A file by its plain system calls. What fails throws.
class LimitFile {
  public:
    LimitFile() = default;
    LimitFile(const std::string& path, int flags)
        : descriptor_(check(::open(path.c_str(), flags | O_CLOEXEC, 0666))) {}
    LimitFile(LimitFile&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    LimitFile& operator=(LimitFile&& other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    ~LimitFile() {
        if (descriptor_ >= 0) {
            ::close(descriptor_);
        }
    }

    std::size_t read(std::span<std::byte> bytes) const {
        return static_cast<std::size_t>(check(::read(descriptor_, bytes.data(), bytes.size())));
    }
    void write(std::span<const std::byte> bytes) const {
        while (!bytes.empty()) {
            const auto written = check(::write(descriptor_, bytes.data(), bytes.size()));
            bytes = bytes.subspan(static_cast<std::size_t>(written));
        }
    }
    void seek(std::int64_t offset) const { check(::lseek(descriptor_, offset, SEEK_SET)); }
    struct stat facts() const {
        struct stat facts {};
        check(::fstat(descriptor_, &facts));
        return facts;
    }
    void set_time(std::int64_t seconds) const {
        const std::array<timespec, 2> times{timespec{0, UTIME_OMIT}, timespec{seconds, 0}};
        check(::futimens(descriptor_, times.data()));
    }

  private:
    template <typename Result>
    static Result check(Result result) {
        if (result < 0) {
            throw std::system_error(errno, std::generic_category(), "file");
        }
        return result;
    }

    int descriptor_ = -1;
};

}  // namespace bench
