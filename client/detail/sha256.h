#pragma once

#include <sys/uio.h>

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>

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

}  // namespace transmit::detail
