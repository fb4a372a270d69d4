#include "aes_ecb/aes_ecb.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <thread>

namespace {

// `count` bytes that count up from `first`.
ByteArray counting(std::size_t count, std::uint8_t first = 0) {
    ByteArray bytes(count);
    std::iota(bytes.begin(), bytes.end(), first);
    return bytes;
}

ByteArray from_hex(const std::string& digits) {
    ByteArray bytes;
    for (std::size_t at = 0; at < digits.size(); at += 2) {
        bytes.push_back(static_cast<std::uint8_t>(std::stoi(digits.substr(at, 2), nullptr, 16)));
    }
    return bytes;
}

bool encrypt(const ByteArray& key, const ByteArray& data, ByteArray& out) {
    return aes_ecb_encrypt_data(key.data(), key.size(), data.data(), data.size(), out);
}

bool decrypt(const ByteArray& key, const ByteArray& data, ByteArray& out) {
    return aes_ecb_decrypt_data(key.data(), key.size(), data.data(), data.size(), out);
}

}  // namespace

// FIPS 197, appendix C: the plain text 00112233..ff under the keys 000102...
TEST(AesEcbTest, FirstBlockIsTheStandardsAnswer) {
    const ByteArray plain = from_hex("00112233445566778899aabbccddeeff");
    const std::pair<std::size_t, const char*> answers[] = {
        {16, "69c4e0d86a7b0430d8cdb78070b4c55a"},
        {24, "dda97ca4864cdfe06eaf70a0ec0d7191"},
        {32, "8ea2b7ca516745bfeafc49904b496089"},
    };
    for (const auto& [key_length, answer] : answers) {
        ByteArray cipher;
        ASSERT_TRUE(encrypt(counting(key_length), plain, cipher));
        ASSERT_EQ(cipher.size(), 32U);
        EXPECT_EQ(ByteArray(cipher.begin(), cipher.begin() + 16), from_hex(answer));
    }
}

// A full block of padding, sixteen times 0x10, under the key 000102..0f.
TEST(AesEcbTest, NothingBecomesOneBlockOfPadding) {
    ByteArray cipher = counting(3);
    ASSERT_TRUE(aes_ecb_encrypt_data(counting(16).data(), 16, nullptr, 0, cipher));
    EXPECT_EQ(cipher, from_hex("954f64f2e4e86e9eee82d20216684899"));
}

TEST(AesEcbTest, EveryLengthComesBack) {
    const ByteArray keys[] = {counting(16, 0x20), counting(16, 0x21), counting(32)};
    for (std::size_t length = 0; length <= 64; ++length) {
        for (const ByteArray& key : keys) {
            const ByteArray plain = counting(length, 0xf0);
            ByteArray cipher;
            ByteArray back;
            ASSERT_TRUE(encrypt(key, plain, cipher));
            EXPECT_EQ(cipher.size(), (length / 16 + 1) * 16);
            ASSERT_TRUE(decrypt(key, cipher, back));
            EXPECT_EQ(back, plain);
        }
    }
}

TEST(AesEcbTest, WhatIsNoCipherTextIsRefused) {
    const ByteArray key = counting(16);
    ByteArray cipher;
    ASSERT_TRUE(encrypt(key, counting(40), cipher));
    for (const std::ptrdiff_t length : {0, 1, 15, 17, 47, 32}) {  // at 32 there is no padding
        ByteArray out = counting(5);
        EXPECT_FALSE(decrypt(key, ByteArray(cipher.begin(), cipher.begin() + length), out));
        EXPECT_TRUE(out.empty()) << length;
    }
    ByteArray out;
    EXPECT_FALSE(decrypt(counting(16, 1), cipher, out));
    EXPECT_TRUE(decrypt(key, cipher, out)) << "a refused message leaves no trace";
    EXPECT_EQ(out, counting(40));
}

TEST(AesEcbTest, KeysOfOtherLengthsAreRefused) {
    for (const std::size_t length : {0U, 8U, 15U, 17U, 31U, 33U, 64U}) {
        ByteArray out = counting(5);
        EXPECT_FALSE(encrypt(counting(length), counting(16), out));
        EXPECT_TRUE(out.empty());
        EXPECT_FALSE(decrypt(counting(length), counting(16), out));
    }
}

TEST(AesEcbTest, ThreadsDoNotDisturbEachOther) {
    std::vector<std::jthread> threads;
    for (std::uint8_t number = 0; number < 4; ++number) {
        threads.emplace_back([number] {
            const ByteArray plain = counting(1000, number);
            for (int turn = 0; turn < 200; ++turn) {
                ByteArray cipher;
                ByteArray back;
                EXPECT_TRUE(encrypt(counting(16, number), plain, cipher));
                EXPECT_TRUE(decrypt(counting(16, number), cipher, back));
                EXPECT_EQ(back, plain);
            }
        });
    }
}
