#include "tests/support/files.h"

#include <openssl/evp.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace support {

namespace {

class Sha256 {
  public:
    Sha256() { EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr); }

    void add(const char* bytes, std::size_t size) { EVP_DigestUpdate(context_.get(), bytes, size); }

    std::string digits() {
        std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
        unsigned int size = 0;
        EVP_DigestFinal_ex(context_.get(), digest.data(), &size);
        std::string text;
        for (unsigned int i = 0; i < size; ++i) {
            text += hexadecimal[digest[i] / 16];
            text += hexadecimal[digest[i] % 16];
        }
        return text;
    }

  private:
    static constexpr const char* hexadecimal = "0123456789abcdef";
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context_{EVP_MD_CTX_new(),
                                                                     &EVP_MD_CTX_free};
};

}  // namespace

std::string read_file(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << file.rdbuf();
    return std::move(bytes).str();
}

void write_file(const std::string& path, std::string_view bytes) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!file.flush()) {
        throw std::runtime_error("can't write " + path);
    }
}

void link_or_copy(const std::string& from, const std::string& to) {
    std::error_code failure;
    std::filesystem::create_hard_link(from, to, failure);
    if (failure) {
        std::filesystem::copy_file(from, to);
    }
}

std::string random_bytes(std::uint64_t size, std::uint64_t seed) {
    std::mt19937_64 generator(seed);
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; i += sizeof(std::uint64_t)) {
        const std::uint64_t word = generator();
        std::memcpy(bytes.data() + i, &word, std::min(sizeof word, bytes.size() - i));
    }
    return bytes;
}

std::string sha256(std::string_view bytes) {
    Sha256 sum;
    sum.add(bytes.data(), bytes.size());
    return sum.digits();
}

std::string sha256_of_file(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error("can't read " + path);
    }
    Sha256 sum;
    std::string block(1 << 20, '\0');
    do {
        file.read(block.data(), static_cast<std::streamsize>(block.size()));
        sum.add(block.data(), static_cast<std::size_t>(file.gcount()));
    } while (file);
    return sum.digits();
}

}  // namespace support
