#include "aes_ecb/aes_ecb.h"

#include "fuzz/fuzz_target.h"
#include "src/message/payload_key.h"

// What can be deciphered is the cipher text of what comes out, and of nothing else; what was
// enciphered comes back.
void run(std::string_view input) {
    constexpr message::PayloadKey key = message::make_payload_key();
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(input.data());
    ByteArray plain;
    ByteArray ciphered;
    if (aes_ecb_decrypt_data(key.data(), key.size(), bytes, input.size(), plain)) {
        require(aes_ecb_encrypt_data(key.data(), key.size(), plain.data(), plain.size(), ciphered),
                "plain bytes can be enciphered");
        require(std::string_view(reinterpret_cast<const char*>(ciphered.data()), ciphered.size()) ==
                    input,
                "a cipher text has one meaning");
    } else {
        require(plain.empty(), "a failure leaves nothing");
    }
    require(aes_ecb_encrypt_data(key.data(), key.size(), bytes, input.size(), ciphered) &&
                ciphered.size() == (input.size() / 16 + 1) * 16,
            "every text has its cipher text");
    require(
        aes_ecb_decrypt_data(key.data(), key.size(), ciphered.data(), ciphered.size(), plain) &&
            std::string_view(reinterpret_cast<const char*>(plain.data()), plain.size()) == input,
        "what was enciphered comes back");
}
