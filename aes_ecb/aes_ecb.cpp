#include "aes_ecb/aes_ecb.h"

#include <openssl/err.h>
#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <exception>

namespace {

constexpr std::size_t block_size = 16;
constexpr std::size_t max_key_length = 32;
constexpr std::uint64_t max_step = std::uint64_t{1} << 30U;  // the library counts in int

enum class Direction { decrypt = 0, encrypt = 1 };

// The cipher of that key length, or null. Fetching is a search by name, so it is done once.
const EVP_CIPHER* cipher_of(std::uint64_t key_length) {
    static const EVP_CIPHER* const aes_128 = EVP_CIPHER_fetch(nullptr, "AES-128-ECB", nullptr);
    static const EVP_CIPHER* const aes_192 = EVP_CIPHER_fetch(nullptr, "AES-192-ECB", nullptr);
    static const EVP_CIPHER* const aes_256 = EVP_CIPHER_fetch(nullptr, "AES-256-ECB", nullptr);
    switch (key_length) {
        case 16:
            return aes_128;
        case 24:
            return aes_192;
        case 32:
            return aes_256;
        default:
            return nullptr;
    }
}

// One thread's cipher for one direction. It keeps its key: expanding one costs as much as many
// blocks, and a thread meets the same key again and again.
class Cipher {
  public:
    explicit Cipher(Direction direction) : direction_(direction) {}
    ~Cipher() { EVP_CIPHER_CTX_free(context_); }
    Cipher(const Cipher&) = delete;
    Cipher& operator=(const Cipher&) = delete;

    bool run(const std::uint8_t* key, std::uint64_t key_length, const std::uint8_t* data,
             std::uint64_t data_length, ByteArray& out) {
        if (!start(key, key_length)) {
            return false;
        }
        out.resize(data_length + block_size);
        std::uint8_t* end = out.data();
        if (!update(data, data_length, end) || !finish(end)) {
            ERR_clear_error();
            return false;
        }
        out.resize(static_cast<std::size_t>(end - out.data()));
        return true;
    }

  private:
    bool start(const std::uint8_t* key, std::uint64_t key_length) {
        const EVP_CIPHER* cipher = cipher_of(key_length);
        if (cipher == nullptr || context_ == nullptr) {
            return false;
        }
        if (key_length == key_length_ && std::equal(key, key + key_length, key_.begin())) {
            return init(nullptr, nullptr);
        }
        key_length_ = 0;
        if (!init(cipher, key)) {
            return false;
        }
        std::copy_n(key, key_length, key_.begin());
        key_length_ = key_length;
        return true;
    }

    // Begins a message; without a cipher and a key, with the ones before.
    bool init(const EVP_CIPHER* cipher, const std::uint8_t* key) {
        return EVP_CipherInit_ex2(context_, cipher, key, nullptr, static_cast<int>(direction_),
                                  nullptr) == 1;
    }

    bool update(const std::uint8_t* data, std::uint64_t length, std::uint8_t*& end) {
        while (length > 0) {
            const std::uint64_t step = std::min(length, max_step);
            int written = 0;
            if (EVP_CipherUpdate(context_, end, &written, data, static_cast<int>(step)) != 1) {
                return false;
            }
            end += written;
            data += step;
            length -= step;
        }
        return true;
    }

    // Adds the padding, or checks it and takes it off.
    bool finish(std::uint8_t*& end) {
        int written = 0;
        if (EVP_CipherFinal_ex(context_, end, &written) != 1) {
            return false;
        }
        end += written;
        return true;
    }

    Direction direction_;
    EVP_CIPHER_CTX* context_ = EVP_CIPHER_CTX_new();
    std::array<std::uint8_t, max_key_length> key_{};
    std::uint64_t key_length_ = 0;
};

bool run(Cipher& cipher, const std::uint8_t* key, std::uint64_t key_length,
         const std::uint8_t* data, std::uint64_t data_length, ByteArray& out) {
    try {
        if (cipher.run(key, key_length, data, data_length, out)) {
            return true;
        }
    } catch (const std::exception&) {
        // Memory is short: false, as for every other failure.
    }
    out.clear();
    return false;
}

}  // namespace

bool aes_ecb_encrypt_data(const std::uint8_t* key, std::uint64_t key_length,
                          const std::uint8_t* data, std::uint64_t data_length, ByteArray& out) {
    thread_local Cipher cipher(Direction::encrypt);
    return run(cipher, key, key_length, data, data_length, out);
}

bool aes_ecb_decrypt_data(const std::uint8_t* key, std::uint64_t key_length,
                          const std::uint8_t* data, std::uint64_t data_length, ByteArray& out) {
    thread_local Cipher cipher(Direction::decrypt);
    return run(cipher, key, key_length, data, data_length, out);
}
