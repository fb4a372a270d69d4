#pragma once

#include <sys/uio.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "client/error.h"

struct evp_md_ctx_st;

namespace transmit::detail {

// SHA-256 (FIPS 180-4) of bytes that come piece by piece, as 64 hexadecimal digits.
class Sha256 {
  public:
    Sha256();

    void add(const void* data, std::size_t size);
    void add(std::span<const iovec> pieces);
    std::string digest();

    static std::string of(std::string_view bytes);

  private:
    struct Free {
        void operator()(evp_md_ctx_st* context) const;
    };
    std::unique_ptr<evp_md_ctx_st, Free> context_;
};

// Fills `size` bytes of memory with those at an offset of a file.
using ReadAt = std::function<Result<void>(void* data, std::size_t size, std::int64_t offset)>;

// That of the first `size` bytes of a file; ends with the caller's wish too.
Result<std::string> sha256_of(std::int64_t size, const ReadAt& read,
                              const std::function<bool()>& cancelled);

}  // namespace transmit::detail
