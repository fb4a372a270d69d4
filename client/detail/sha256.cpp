#include "client/detail/sha256.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <new>
#include <vector>

namespace transmit::detail {

void Sha256::Free::operator()(evp_md_ctx_st* context) const {
    EVP_MD_CTX_free(context);
}

Sha256::Sha256() : context_(EVP_MD_CTX_new()) {
    if (!context_ || EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr) != 1) {
        throw std::bad_alloc();
    }
}

void Sha256::add(const void* data, std::size_t size) {
    EVP_DigestUpdate(context_.get(), data, size);
}

void Sha256::add(std::span<const iovec> pieces) {
    for (const iovec& piece : pieces) {
        add(piece.iov_base, piece.iov_len);
    }
}

std::string Sha256::digest() {
    std::array<unsigned char, 32> bytes{};
    EVP_DigestFinal_ex(context_.get(), bytes.data(), nullptr);
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const unsigned char byte : bytes) {
        text += {digits[byte >> 4], digits[byte & 15]};
    }
    return text;
}

std::string Sha256::of(std::string_view bytes) {
    Sha256 hash;
    hash.add(bytes.data(), bytes.size());
    return hash.digest();
}

Result<std::string> sha256_of(std::int64_t size, const ReadAt& read,
                              const std::function<bool()>& cancelled) {
    Sha256 hash;
    std::vector<char> piece(256UL * 1024);
    for (std::int64_t offset = 0; offset < size;) {
        if (cancelled && cancelled()) {
            return Error{ErrorKind::cancelled, 0, "cancelled"};
        }
        const std::int64_t step = std::min<std::int64_t>(std::ssize(piece), size - offset);
        if (auto got = read(piece.data(), static_cast<std::size_t>(step), offset); !got) {
            return got.error();
        }
        hash.add(piece.data(), static_cast<std::size_t>(step));
        offset += step;
    }
    return hash.digest();
}

}  // namespace transmit::detail
